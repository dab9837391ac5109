#include "platform/Process.h"

#include <gtest/gtest.h>

#include "platform/Exception.h"
#include "platform/Pipe.h"
#include "support/TestSupport.h"

using namespace vessa::sal;

TEST(Process, RunCapturedDeliversLargeOutputWholeAndTheExitStatus) {
    std::string out = "kept:";
    int status = exec::runCaptured(
        "/bin/sh", {"-c", "i=0; while [ $i -lt 500 ]; do echo line$i; i=$((i+1)); done; exit 3"}, out);
    EXPECT_EQ(status, 3);
    std::string expected = "kept:";
    for (int i = 0; i < 500; ++i) {
        expected += "line" + std::to_string(i) + "\n";
    }
    EXPECT_EQ(out, expected);
    EXPECT_GT(out.size(), 1024u);
}

TEST(Process, ChildSeesNoInputAndNoErrorStream) {
    std::string out;
    // `read` would block forever on end of input only if the input were closed; with an open, unwritten
    // pipe it blocks too, so the child checks instead that its input is a pipe and stderr is not ours.
    EXPECT_EQ(
        exec::runCaptured("/bin/sh", {"-c", "[ -p /dev/stdin ] && echo pipe; echo err >&2; echo done"}, out),
        0);
    EXPECT_EQ(out, "pipe\ndone\n");
}

TEST(Process, MissingProgramThrowsFromTheFamily) {
    std::string out;
    try {
        exec::runCaptured("vessa-no-such-program", {}, out);
        FAIL() << "no exception";
    } catch (const vessa::Exception& e) {
        EXPECT_NE(e.why().find("vessa-no-such-program"), std::string::npos);
    }
}

TEST(Process, LaunchPropertyEnvironmentAndWorkingDirectory) {
    vessa::test::TempDir dir;
    xio::Pipe out;
    exec::LaunchProperty launch;
    launch.set(exec::EnvVars(std::map<std::string, std::string>{{"ONLY", "this"}}))
        .set(exec::WorkingDirectory(dir.path() + "/new/sub", true));
    exec::Process p = exec::Process::create("/bin/sh", {"-c", "echo \"$ONLY:$HOME:$(pwd)\""}, launch, false,
                                            -1, true, out.writeEnd().id(), false, -1);
    out.writeEnd().close();
    std::string text;
    char buf[256];
    xio::Channel ch(out.readEnd());
    for (ssize_t n; (n = ch.read(buf, sizeof buf)) > 0;) {
        text.append(buf, static_cast<size_t>(n));
    }
    EXPECT_EQ(p.wait(), 0);
    EXPECT_EQ(p.wait(), 0);  // a second wait returns the same status
    EXPECT_EQ(text, "this::" + dir.path() + "/new/sub\n");
}

TEST(Process, WaitOnEmptyHandleThrows) {
    exec::Process p;
    EXPECT_THROW(p.wait(), vessa::Exception);
}
