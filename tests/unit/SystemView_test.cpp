#include "platform/view/SystemView.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace sys = vessa::sal::sys;

namespace {

// Replay answers from the snapshot alone. (Its device answers, .vessa/ioctl, and the status of a
// recorded command are compared through the golden snapshots; an empty device file is unreadable in
// every capture RecordingView_test replays; links and ".." resolve as RootedFiles_test shows; a listing
// comes sorted and typed as Hax_test lists /sys/block, and a missing directory is not listed in the
// no-sources scenario.)
TEST(SystemView, ReplayAnswersFromTheSnapshotOnly) {
    EXPECT_EQ(sys::commandFileName("a%b", {"/dev/sda"}), "a%25b %2Fdev%2Fsda");  // recording names
    vessa::test::TempDir root;
    root.write(".vessa/commands/pvdisplay", "  --- Physical volume ---\n");
    root.write("etc/hostname", "snaphost\nsecond\n");
    auto view = sys::makeReplayView(root.path() + "/");
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
