#include "platform/view/SystemView.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <tuple>

#include "support/TestSupport.h"

namespace sys = vessa::sal::sys;
namespace fs = std::filesystem;

namespace {

// Replay answers from the snapshot alone. (Its device answers, .vessa/ioctl, are compared through the
// scenario snapshots; links and ".." resolve as RootedFiles_test shows.)
TEST(SystemView, ReplayAnswersFromTheSnapshotOnly) {
    EXPECT_EQ(sys::commandFileName("a%b", {"/dev/sda"}), "a%25b %2Fdev%2Fsda");  // recording names
    vessa::test::TempDir root;
    const std::pair<const char*, const char*> files[] = {
        {"sys/block/sdb/size", "8\n"},
        {"sys/block/sda/size", "16\n"},
        {"proc/mounts", "/dev/sda1 / ext4 rw 0 0\n"},
        {".vessa/commands/pvdisplay", "  --- Physical volume ---\n"},
        {".vessa/commands/file -s %2Fdev%2Fsda", "/dev/sda: data\n"},
        {".vessa/commands/file -s %2Fdev%2Fsda.status", "3\n"},
        {"dev/sda", "readable"},
        {"dev/sdb", ""},
        {"etc/hostname", "snaphost\nsecond\n"}};
    for (const auto& [path, content] : files) {
        root.write(path, content);
    }
    fs::create_symlink("/proc/mounts", root.path() + "/etc/mtab");
    auto view = sys::makeReplayView(root.path() + "/");

    std::string content;
    ASSERT_TRUE(view->readFile("/etc/mtab", content));  // an absolute link, followed inside the snapshot
    EXPECT_EQ(content, "/dev/sda1 / ext4 rw 0 0\n");
    EXPECT_FALSE(view->readFile("/etc/fstab", content));
    std::vector<sys::DirEntry> entries;
    ASSERT_TRUE(view->listDirectory("/sys/block", entries));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name + " " + entries[1].name, "sda sdb");  // sorted, whatever the directory's order
    EXPECT_EQ(entries[0].type, sys::DirEntry::Directory);
    EXPECT_FALSE(view->listDirectory("/nowhere", entries));

    std::string out = "before;";
    int status = -7;
    ASSERT_EQ(view->run("pvdisplay", {}, out, status), sys::RunOutcome::Exited);
    EXPECT_EQ(status, 0);
    ASSERT_EQ(view->run("file", {"-s", "/dev/sda"}, out, status), sys::RunOutcome::Exited);
    EXPECT_EQ(status, 3);
    EXPECT_EQ(out, "before;  --- Physical volume ---\n/dev/sda: data\n");
    status = -7;
    EXPECT_EQ(view->run("lvdisplay", {}, out, status), sys::RunOutcome::NotStarted);
    EXPECT_EQ(status, -7);
    // An empty device file is not readable.
    EXPECT_EQ(std::make_tuple(view->deviceReadable("/dev/sda"), view->deviceReadable("/dev/sdb"),
                              view->deviceReadable("/dev/sdc")),
              std::make_tuple(true, false, false));
    EXPECT_EQ(view->hostName(), "snaphost");
}

}  // namespace
