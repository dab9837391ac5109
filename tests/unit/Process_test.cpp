#include "platform/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <sstream>

#include "platform/Exception.h"
#include "support/TestSupport.h"

using namespace vessa::sal;

// Output of several reads is appended whole; the child's input is a pipe it cannot wait on, and its
// error stream is not ours.
TEST(Process, RunCapturedAppendsAllOutputAndGivesTheExitStatus) {
    std::string out = "kept:";
    EXPECT_EQ(exec::runCaptured(
                  "/bin/sh", {"-c", "[ -p /dev/stdin ] && echo pipe; echo err >&2; seq 1 1000; exit 3"}, out),
              3);
    std::string expected = "kept:pipe\n";
    for (int i = 1; i <= 1000; ++i) {
        expected += std::to_string(i) + "\n";
    }
    EXPECT_EQ(out, expected);
    EXPECT_THAT([&] { exec::runCaptured("vessa-no-such-program", {}, out); },
                testing::ThrowsMessage<vessa::Exception>(testing::HasSubstr("vessa-no-such-program")));
    EXPECT_THROW(exec::runCaptured("/bin/sh", {"-c", "exec yes"}, out), vessa::Exception);  // without end
}

TEST(Process, LaunchPropertyEnvironmentAndWorkingDirectory) {
    vessa::test::TempDir dir;
    exec::LaunchProperty launch;
    launch.set(exec::EnvVars(std::map<std::string, std::string>{{"ONLY", "this"}}))
        .set(exec::WorkingDirectory(dir.path() + "/new/sub", true));
    const std::string out = dir.path() + "/out";
    exec::Process p =
        exec::Process::create("/bin/sh", {"-c", "echo \"$ONLY:$HOME:$(pwd)\" > \"$0\"", out}, launch);
    EXPECT_EQ(p.wait(), 0);
    EXPECT_EQ(p.wait(), 0);  // a second wait returns the same status
    EXPECT_EQ(vessa::test::readFile(out), "this::" + dir.path() + "/new/sub\n");
    EXPECT_THROW(exec::Process().wait(), vessa::Exception);  // an empty handle
}

namespace {
// True once nothing of that process is left to run: it is gone, or a zombie waiting for init.
bool ended(pid_t pid) {
    const std::string stat = vessa::test::readFile("/proc/" + std::to_string(pid) + "/stat");
    const std::string::size_type close = stat.rfind(')');
    return stat.empty() || (close != std::string::npos && stat.compare(close + 2, 1, "Z") == 0);
}
}  // namespace

// A child that hangs, one that ignores SIGTERM, and one that writes without end are all ended with
// everything they started; the child is reaped and its partial output dropped.
TEST(Process, RunBoundedEndsOverrunningChildrenAndTheirGroup) {
    const struct {
        const char* script;
        exec::RunResult::Outcome outcome;
    } cases[] = {
        {"sleep 1000 & echo $! $$ > \"$0\"; echo partial; wait", exec::RunResult::TimedOut},
        {"trap '' TERM; sleep 1000 & echo $! $$ > \"$0\"; while :; do sleep 1; done",
         exec::RunResult::TimedOut},
        {"echo $$ $$ > \"$0\"; yes", exec::RunResult::TooMuchOutput},
        {"echo $$ $$ > \"$0\"; echo done", exec::RunResult::Exited},
    };
    exec::RunLimits limits;
    limits.timeoutSeconds = 1;
    limits.maxOutput = 1 << 20;
    limits.graceMilliseconds = 300;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        vessa::test::TempDir dir;
        const std::string pids = dir.path() + "/pids";
        std::string out = "kept:";
        EXPECT_EQ(exec::runBounded("/bin/sh", {"-c", c.script, pids}, out, limits).outcome, c.outcome);
        EXPECT_EQ(out, c.outcome == exec::RunResult::Exited ? "kept:done\n" : "kept:");
        pid_t grandchild = 0, child = 0;
        std::istringstream(vessa::test::readFile(pids)) >> grandchild >> child;
        ASSERT_GT(child, 0);
        EXPECT_EQ(::kill(child, 0), -1) << "child not reaped";
        for (int i = 0; i < 100 && !ended(grandchild); ++i) {
            ::usleep(20000);
        }
        EXPECT_TRUE(ended(grandchild));
    }
}

TEST(Process, RunBoundedWithStreamsHandsOnBothStreamsAndTakesInputAndEnvironment) {
    vessa::test::TempDir dir;
    exec::RunStreams streams;
    std::string out, err;
    streams.output = [&out](const char* d, std::size_t n) { out.append(d, n); };
    streams.error = [&err](const char* d, std::size_t n) { err.append(d, n); };
    streams.inputFile = dir.write("in", "from the file\n");
    streams.hasEnv = true;
    streams.env.vars["ONLY"] = "this";
    const std::string script =
        "cat; echo \"$ONLY:${HOME:-none}\"; i=0; while [ $i -lt 300 ]; do echo e$i >&2; i=$((i+1)); done";
    EXPECT_EQ(exec::runBounded("/bin/sh", {"-c", script}, streams, exec::RunLimits()).status, 0);
    EXPECT_EQ(out, "from the file\nthis:none\n");
    EXPECT_EQ(err.substr(0, 6), "e0\ne1\n");
    EXPECT_EQ(err.size(), 1390u);  // every line, over more than one read
    streams.inputFile = dir.path() + "/missing";
    EXPECT_THROW(exec::runBounded("/bin/sh", {"-c", "true"}, streams, exec::RunLimits()), vessa::Exception);
}
