#include "platform/view/SystemView.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace sys = vessa::sal::sys;

namespace {

// Replay answers from the snapshot alone. (Its device answers, .vessa/ioctl, and the status of a
// recorded command are compared through the golden snapshots; an empty device file is unreadable in
// every capture RecordingView_test replays; links and ".." resolve as RootedFiles_test shows.)
TEST(SystemView, ReplayAnswersFromTheSnapshotOnly) {
    EXPECT_EQ(sys::commandFileName("a%b", {"/dev/sda"}), "a%25b %2Fdev%2Fsda");  // recording names
    vessa::test::TempDir root;
    root.write("sys/block/sdb/size", "8\n");
    root.write("sys/block/sda/size", "16\n");
    root.write(".vessa/commands/pvdisplay", "  --- Physical volume ---\n");
    root.write("etc/hostname", "snaphost\nsecond\n");
    auto view = sys::makeReplayView(root.path() + "/");

    std::vector<sys::DirEntry> entries;
    ASSERT_TRUE(view->listDirectory("/sys/block", entries));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name + " " + entries[1].name, "sda sdb");  // sorted, whatever the directory's order
    EXPECT_EQ(entries[0].type, sys::DirEntry::Directory);
    EXPECT_FALSE(view->listDirectory("/nowhere", entries));

    std::string out = "before;";
    int status = -7;
    ASSERT_EQ(view->run("pvdisplay", {}, out, status), sys::RunOutcome::Exited);
    EXPECT_EQ(out, "before;  --- Physical volume ---\n");
    status = -7;
    EXPECT_EQ(view->run("lvdisplay", {}, out, status), sys::RunOutcome::NotStarted);
    EXPECT_EQ(status, -7);
    EXPECT_EQ(view->hostName(), "snaphost");
}

}  // namespace
