// vessa-storage capture on this machine: the capture replays to exactly what the live run shows.
// Root only (loop devices, LVM, mounts); everything is undone afterwards.
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <unistd.h>

#include "platform/Process.h"
#include "support/LoopDevice.h"
#include "support/TestSupport.h"

using vessa::test::LoopDevice;

namespace {

const std::string kProgram = std::string(VESSA_BINARY_DIR) + "/cli/vessa-storage";

int runProgram(const std::list<std::string>& args, std::string& out) {
    out.clear();
    return vessa::sal::exec::runCaptured(kProgram, args, out);
}

TEST(CaptureLive, ReplayOfTheCaptureEqualsTheLiveRun) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices";
    }
    vessa::test::TestMachine machine;
    ASSERT_TRUE(machine.ok());
    vessa::test::TempDir work;

    const std::string snapshot = work.path() + "/snap";
    std::string live, replayed, out;
    ASSERT_EQ(runProgram({"capture", snapshot}, out), 0);
    ASSERT_EQ(runProgram({"list", "--json"}, live), 0);
    ASSERT_EQ(runProgram({"list", "--json", "--sysroot", snapshot}, replayed), 0);
    EXPECT_EQ(replayed, live);
    EXPECT_NE(live.find(machine.mountPoint() + "/targetfile.dat"), std::string::npos);

    ASSERT_EQ(runProgram({"report", "--output", work.path() + "/live.xml"}, out), 0);
    ASSERT_EQ(runProgram({"report", "--sysroot", snapshot, "--output", work.path() + "/replay.xml"}, out), 0);
    EXPECT_EQ(vessa::test::readFile(work.path() + "/replay.xml"),
              vessa::test::readFile(work.path() + "/live.xml"));
}

TEST(CaptureLive, RefusesANonEmptyDirectoryAndReportsOneItCannotWrite) {
    vessa::test::TempDir work;
    work.write("full/something", "x");
    std::string out;
    EXPECT_EQ(runProgram({"capture", work.path() + "/full"}, out), 2);
    const std::string file = work.write("a-file", "x");
    EXPECT_EQ(runProgram({"capture", file + "/sub"}, out), 1);
    if (!vessa::test::runningAsRoot()) {
        return;
    }
    // Root writes through permissions; a read-only mount stops it.
    const std::string ro = work.path() + "/ro";
    ASSERT_EQ(::mkdir(ro.c_str(), 0755), 0);
    ASSERT_EQ(::mount("tmpfs", ro.c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
    struct Unmount {
        std::string dir;
        ~Unmount() { ::umount2(dir.c_str(), MNT_DETACH); }
    } unmount{ro};
    std::string err;
    std::list<std::string> args = {"-c", "\"$0\" capture \"$1\" 2>&1", kProgram, ro};
    EXPECT_EQ(vessa::sal::exec::runCaptured("/bin/sh", args, err), 1);
    EXPECT_NE(err.find(ro), std::string::npos) << err;
}

}  // namespace
