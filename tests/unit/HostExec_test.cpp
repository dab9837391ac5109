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

template <class C>
std::string joined(const C& words) {
    std::string out;
    for (const std::string& w : words) {
        out += (&w == &*words.begin() ? "" : "|") + w;
    }
    return out;
}

// A host command goes through the launcher, in an xterm window when asked, with the workdir written
// the way of the host's build OS; a local one starts the program itself, in an xterm when asked.
TEST(HostExec, LocallyOrThroughTheLauncher) {
    const struct {
        const char *buildOs, *workdir;
        bool inXterm, create;
        const char *program, *args;  // the program started here, and its arguments joined by "|"
    } cases[] = {
        {"win", "C:/tests//run", false, false, "pelo",
         "--workdir|C:\\tests\\run|--host|127.0.0.1|--exec|prog|a b"},
        {"linux", "\\opt\\run", false, true, "pelo",
         "--create-workdir|--workdir|/opt/run|--host|127.0.0.1|--exec|prog|a b"},
        {"linux", "", false, false, "pelo", "--workdir||--host|127.0.0.1|--exec|prog|a b"},
        {"linux", "/w", true, false, "xterm",
         "-iconic|-T|127.0.0.1: prog|-e|pelo|--workdir|/w|--host|127.0.0.1|--exec|prog|a b"},
    };
    for (const auto& c : cases) {
        auto host = hostBuiltFor(c.buildOs);
        FakeProgram started(c.program, "");
        std::list<std::string> command = {"prog", "a b"};
        EXPECT_EQ(host->exec(command, c.workdir, c.inXterm, c.inXterm, c.create, {}).wait(), 0);
        ASSERT_EQ(started.calls().size(), 1u);
        EXPECT_EQ(joined(started.calls()[0]), c.args) << c.buildOs << " " << c.workdir;
        if (!c.inXterm) {
            EXPECT_EQ(joined(command), c.args);  // changed in place
        }
    }
    FakeProgram xterm("xterm", "");
    std::list<std::string> args = {"1"};
    hostBuiltFor("linux")->exec("T", "prog", args, "", false, {}, true, false).wait();
    EXPECT_EQ(xterm.calls(), (std::vector<std::vector<std::string>>{{"-T", "T", "-e", "prog", "1"}}));
    // The local form runs the program with the environment given.
    vessa::test::TempDir dir;
    std::list<std::string> script = {"-c", "echo \"$ONLY\" > \"$OUT\""};
    hostBuiltFor("linux")
        ->exec("t", "/bin/sh", script, "", false, {{"ONLY", "this"}, {"OUT", dir.path() + "/o"}}, false,
               false)
        .wait();
    EXPECT_EQ(vessa::test::readFile(dir.path() + "/o"), "this\n");
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
}

}  // namespace
