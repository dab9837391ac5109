#include <gtest/gtest.h>

#include "support/FakeProgram.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::test::FakeProgram;

namespace {

std::unique_ptr<Host> hostBuiltFor(const std::string& buildOs) {
    vessa::hax::clearHostCache();
    FakeProgram pelo("pelo", "build.os=" + buildOs + "\n");
    return std::unique_ptr<Host>(Host::named("127.0.0.1", false));
}

TEST(HostExec, HostCommandGoesThroughTheLauncher) {
    const struct {
        const char* buildOs;
        const char* workdir;
        bool create;
        std::vector<std::string> args;
    } cases[] = {
        {"win",
         "C:/tests//run",
         false,
         {"--workdir", "C:\\tests\\run", "--host", "127.0.0.1", "--exec", "prog", "a b"}},
        {"linux",
         "\\opt\\run",
         true,
         {"--create-workdir", "--workdir", "/opt/run", "--host", "127.0.0.1", "--exec", "prog", "a b"}},
        {"linux", "", false, {"--workdir", "", "--host", "127.0.0.1", "--exec", "prog", "a b"}},
    };
    for (const auto& c : cases) {
        auto host = hostBuiltFor(c.buildOs);
        FakeProgram pelo("pelo", "");
        std::list<std::string> command = {"prog", "a b"};
        vessa::sal::exec::Process p = host->exec(command, c.workdir, false, false, c.create, {});
        EXPECT_EQ(p.wait(), 0);
        ASSERT_EQ(pelo.calls().size(), 1u);
        EXPECT_EQ(pelo.calls()[0], c.args) << c.buildOs << " " << c.workdir;
        EXPECT_EQ(std::vector<std::string>(command.begin(), command.end()), c.args);  // changed in place
    }
    vessa::hax::clearHostCache();
}

TEST(HostExec, XtermWindowWrapsTheProgram) {
    auto host = hostBuiltFor("linux");
    FakeProgram xterm("xterm", "");
    std::list<std::string> command = {"prog", "x"};
    host->exec(command, "/w", true, true, false, {}).wait();
    ASSERT_EQ(xterm.calls().size(), 1u);
    EXPECT_EQ(xterm.calls()[0],
              (std::vector<std::string>{"-iconic", "-T", "127.0.0.1: prog", "-e", "pelo", "--workdir", "/w",
                                        "--host", "127.0.0.1", "--exec", "prog", "x"}));
    std::list<std::string> args = {"1"};
    host->exec("T", "prog", args, "", false, {}, true, false).wait();
    EXPECT_EQ(xterm.calls()[1], (std::vector<std::string>{"-T", "T", "-e", "prog", "1"}));
    vessa::hax::clearHostCache();
}

TEST(HostExec, ExecUsesTheGivenEnvironment) {
    auto host = hostBuiltFor("linux");
    vessa::test::TempDir dir;
    std::list<std::string> args = {"-c", "echo \"$ONLY\" > \"$OUT\""};
    host->exec("t", "/bin/sh", args, "", false, {{"ONLY", "this"}, {"OUT", dir.path() + "/o"}}, false, false)
        .wait();
    EXPECT_EQ(vessa::test::readFile(dir.path() + "/o"), "this\n");
    vessa::hax::clearHostCache();
}

TEST(QuickExec, LargeOutputArrivesWholeAndMissingProgramFails) {
    std::string answer;
    for (int i = 0; i < 400; ++i) {
        answer += "filler.key" + std::to_string(i) + "=value\n";
    }
    answer += "cpu.name=last line\n";
    {
        auto host = hostBuiltFor("linux");
        (void)host;
    }
    vessa::hax::clearHostCache();
    {
        FakeProgram pelo("pelo", answer);
        std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
        EXPECT_GT(answer.size(), 1024u);
        EXPECT_EQ(host->cpuName(), "last line");
    }
    vessa::hax::clearHostCache();
    vessa::test::TempDir empty;
    const std::string oldPath = std::getenv("PATH");
    ::setenv("PATH", empty.path().c_str(), 1);
    vessa::test::LogCapture log;
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    ::setenv("PATH", oldPath.c_str(), 1);
    EXPECT_TRUE(log.hasMessage("Failure, returning -1"));
    EXPECT_TRUE(log.hasMessage("Execution failed"));
    vessa::hax::clearHostCache();
}

TEST(HostExec, ReadOutputCopiesTheChannelChunkByChunk) {
    auto host = hostBuiltFor("linux");
    vessa::sal::xio::Pipe pipe;
    const std::string text = std::string(1500, 'a') + "\n";
    vessa::sal::xio::Channel writer(pipe.writeEnd());
    writer.write(text.data(), text.size());
    pipe.writeEnd().close();
    vessa::sal::xio::Channel reader(pipe.readEnd());
    testing::internal::CaptureStdout();
    EXPECT_EQ(host->ReadOutput(reader), 0);
    // Each chunk of at most 1024 bytes is followed by an end of line, inside a line or not.
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              std::string(1024, 'a') + "\n" + std::string(476, 'a') + "\n\n");
    vessa::hax::clearHostCache();
}

}  // namespace
