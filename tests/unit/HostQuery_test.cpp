#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/ErrorText.h"
#include "platform/Str.h"
#include "support/FakeProgram.h"
#include "support/ScriptedView.h"
#include "support/StubTransport.h"
#include "support/TestSupport.h"
#include "target/Host.h"
#include "target/ListingLineError.h"

using vessa::target::Host;
using vessa::target::Storage;
using vessa::test::FakeProgram;
using namespace std::string_literals;

namespace {

const std::string kMiB(1 << 20, 'x');

// The agent's install directory, as every remote host tells it; `asked` is the host last asked for.
std::shared_ptr<vessa::test::StubTransport> installedAt(std::string& asked) {
    return std::make_shared<vessa::test::StubTransport>(
        [&asked](const std::string& host, const std::string& name) {
            asked = host;
            return name == "VESSA_VLTT_INSTALL_DIR" ? "/opt/vltt" : "";
        });
}
std::string g_asked;

std::vector<std::pair<int, std::string>> g_progress;
void record(int percent, std::string message) {
    g_progress.emplace_back(percent, message);
}

class RemoteQuery : public ::testing::Test {
  protected:
    void SetUp() override {
        vessa::hax::setTransport(installedAt(g_asked));
        g_progress.clear();
        FakeProgram pelo("pelo", "build.os=linux\n");  // a quiet answer to the description request
        host.reset(Host::named("192.0.2.10", false));
    }
    std::unique_ptr<Host> host;
};

const char* const kListing =
    "\n"
    "136\n"
    "[0]~/dev/sda~ disk0 ~ATA     DISK~ext4~~2:0:0:0~~1~305419896~2~1000204886016~0~1~0\n"
    "/dev/sdb~disk1~~~vg0~~Z~0~~0~512~0~0~1\n";

// (What each listing line gives, fields and exclusions, is the records of tests/data/listing.)
TEST_F(RemoteQuery, ArgumentVectorAndProgress) {
    FakeProgram pelo("pelo", kListing);
    EXPECT_EQ(host->fill(Storage::physicalStorage, record, false, {"-x", "-y"}), 2);
    EXPECT_EQ(pelo.calls(), (std::vector<std::vector<std::string>>{
                                {"--host", "192.0.2.10", "--workdir", "/opt/vltt/korvo_tests/",
                                 "--create-workdir", "--exec", "korvo", "-zt", "-zh", "-p", "-x", "-y"}}));
    EXPECT_EQ(g_progress,
              (std::vector<std::pair<int, std::string>>{{0, "Requesting device information"},
                                                        {80, "Retrieved device list...parsing..."},
                                                        {95, "Added /dev/sda to devices"},
                                                        {95, "Added /dev/sdb to devices"}}));
}

TEST_F(RemoteQuery, TypeOptions) {
    const std::pair<unsigned int, const char*> cases[] = {{5, "-p"},  {1, "-f"}, {3, "-f"}, {8, "-l"},
                                                          {26, "-l"}, {32, ""},  {0, ""}};
    for (const auto& [type, option] : cases) {
        FakeProgram pelo("pelo", "136\n");
        host->fill(static_cast<Storage::storageType>(type), nullptr, false, {});
        ASSERT_EQ(pelo.calls().size(), 1u);
        EXPECT_EQ(pelo.calls()[0].size(), 10u) << type;
        EXPECT_EQ(pelo.calls()[0][9], option) << type;
    }
    EXPECT_TRUE(host->storage().empty());
}

TEST_F(RemoteQuery, OtherVersionsFailedRunsAndBadVersionLinesAddNothing) {
    {
        FakeProgram pelo("pelo", "137\n/dev/sda~a~b\n  x  \n");  // another version is only logged
        vessa::test::LogCapture log;
        EXPECT_EQ(host->fill(Storage::physicalStorage, nullptr, false, {}), 0);
        EXPECT_TRUE(log.hasMessage("Parsing: /dev/sda~a~b") && log.hasMessage("Parsing: x")) << log.text();
    }
    {
        FakeProgram pelo("pelo", kListing, 1);  // a failed run ends the progress at its first step
        vessa::test::LogCapture log;
        EXPECT_EQ(host->fill(Storage::physicalStorage, record, false, {}), 0);
        EXPECT_EQ(g_progress.size(), 1u);
        EXPECT_TRUE(log.hasMessage("Execution failed"));
    }
    FakeProgram pelo("pelo", "korvo 1.0\n");
    EXPECT_THROW(host->fill(Storage::physicalStorage, nullptr, false, {}), vessa::util::str::Exception);
}

// The launcher is handed the host's name as it was given ("127.2" is 127.0.0.2 once resolved), so that
// ssh checks the key recorded for that name. Each way the launcher can fail is named by its cause.
TEST(RemoteQueryFailure, NamesTheHostAndTheCause) {
    using vessa::sal::sys::RunOutcome;
    const struct {
        RunOutcome outcome;
        int status;
        const char* failure;
    } cases[] = {
        {RunOutcome::NotStarted, 0, "the launcher pelo could not be run"},
        {RunOutcome::TimedOut, 0, "pelo did not end within the command timeout of 120 s and was ended"},
        {RunOutcome::TooMuchOutput, 0, "pelo wrote more than 67108864 bytes and was ended"},
        {RunOutcome::Exited, 3, "korvo did not run to its end through pelo (exit status 3)"},
    };
    vessa::sal::sys::setCommandLimits(vessa::sal::exec::RunLimits());
    for (const auto& c : cases) {
        vessa::hax::clearHostCache();
        vessa::hax::setTransport(installedAt(g_asked));
        auto view = std::make_unique<vessa::test::ScriptedView>();
        view->commands[vessa::sal::sys::commandFileName(
            "pelo", {"--host", "127.2", "--workdir", "/opt/vltt/korvo_tests/", "--create-workdir", "--exec",
                     "korvo", "-zt", "-zh", "-p"})] =
            vessa::test::ScriptedView::Command(c.outcome, c.status, "");
        vessa::test::ScopedView scoped(std::move(view));
        std::unique_ptr<Host> host(Host::named("127.2", false));
        ASSERT_EQ(host->id(), "127.0.0.2");
        host->fill(Storage::physicalStorage, nullptr, false, {});
        EXPECT_EQ(host->lastQueryFailure(), c.failure);
        EXPECT_EQ(g_asked, "127.2");
    }
}

TEST_F(RemoteQuery, WorkerThreadFillsTheList) {
    FakeProgram pelo("pelo", kListing);
    vessa::sal::exec::Thread worker = host->queryDevices(Storage::physicalStorage, {});
    worker.wait();
    EXPECT_EQ(worker.failure(), "");
    EXPECT_EQ(host->storage().size(), 2u);
    EXPECT_TRUE(g_progress.empty());  // the worker reports no progress
}

// Listings (version 136) through the launcher too large to keep as files: a line or a listing too long
// throws out of Host::fill, keeps the items of the lines before, and names its line, cut, which the
// command line's error text shows. (Each field that does not convert, and the fields that may be
// missing, are the records of tests/data/listing.)
TEST_F(RemoteQuery, MalformedListingLines) {
    const struct {
        const char* name;
        std::string listing;
        const char* items;    // "path size" of each item
        std::string failure;  // the failing line's number, then the command line's text up to the reason
    } cases[] = {
        // A line of 64 KiB is one device; a longer one ends the listing (the items before it stay), and
        // its text is cut.
        {"64KiB line", "/dev/big~" + std::string(65536 - 9, 'x'), "/dev/big 0\n", ""},
        {"1MiB name", "/dev/ok~ok\n/dev/big~" + kMiB, "/dev/ok 0\n",
         "2 listing line 2 \"/dev/big~" + std::string(151, 'x') +
             "... (1048585 characters)\": a line is longer than 65536 bytes"},
        {"1MiB separators", std::string(1 << 20, '~'), "",
         "1 listing line 1 \"" + std::string(160, '~') +
             "... (1048576 characters)\": a line is longer than 65536 bytes"},
        // More lines than any host has devices: refused before an item is made.
        {"1,000,001 lines", std::string(1000000, '\n') + "/dev/last", "",
         "1000001 listing line 1000001 \"/dev/last\": the listing holds more than 1000000 items"},
    };
    for (const auto& c : cases) {
        FakeProgram pelo("pelo", "136\n" + c.listing);
        std::string failure;
        try {
            host->fill(Storage::physicalStorage, nullptr, false, {});
        } catch (const vessa::target::ListingLineError& e) {
            const std::string text = vessa::cli::errorText(e);  // one line, whatever the listing held
            EXPECT_EQ(text.find('\n'), std::string::npos);
            failure =
                std::to_string(e.lineNumber()) + " " + text.substr(0, text.find(": conversion from \""));
        }
        EXPECT_EQ(failure, c.failure) << c.name;
        std::string items;
        for (Storage* s : host->storage()) {
            items += s->path() + " " + std::to_string(s->size()) + "\n";
            delete s;
        }
        host->storage().clear();
        EXPECT_EQ(items, c.items) << c.name;
    }
}

// The environment tool's answer: lines of key=value, the last one without a newline, the later of two
// lines winning; nothing else. A failed run leaves the description empty.
TEST_F(RemoteQuery, MalformedHostDescriptions) {
    const struct {
        const char* name;
        std::string output;
        std::string osName;
        std::string cpuCount;
        int status = 0;
    } cases[] = {
        {"1MiB value, no newline", "cpu.count=2\nos.name=" + kMiB, kMiB, "2"},
        {"1MiB without \"=\"", kMiB + kMiB, "", ""},
        {"NUL bytes and CR", "os.name=Li\0nux\r\ncpu.count=\x01\r\n"s, "Li\0nux"s, "\x01"},
        {"blank before =", "os.name = Linux\ncpu.count=4=5", "", "4=5"},
        {"later line wins", "os.name=A\nnoequals\nos.name= B \n", "B", ""},
        {"failed run", "os.name=Linux\ncpu.count=4\n", "", "", 3},
    };
    for (const auto& c : cases) {
        FakeProgram pelo("pelo", c.output, c.status);
        std::unique_ptr<Host> remote(Host::named("192.0.2.20", false));
        EXPECT_EQ(remote->osName(), c.osName) << c.name;
        EXPECT_EQ(remote->cpuCount(), c.cpuCount) << c.name;
    }
}

TEST(RemoteHost, NoTransportNamesHostAndOperation) {
    FakeProgram pelo("pelo", "");
    std::unique_ptr<Host> host(Host::named("192.0.2.11", false));
    EXPECT_THAT([&host] { host->envValueOf("X"); },
                testing::ThrowsMessage<vessa::Exception>(
                    testing::AllOf(testing::HasSubstr("192.0.2.11"), testing::HasSubstr("environment"))));
}

}  // namespace
