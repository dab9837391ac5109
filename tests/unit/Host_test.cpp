#include "target/Host.h"

#include <gtest/gtest.h>

#include "support/FakeProgram.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using vessa::target::Host;
using vessa::target::Storage;
using vessa::test::FakeProgram;

namespace {

class HostTest : public ::testing::Test {
  protected:
    void SetUp() override { vessa::hax::clearHostCache(); }
    void TearDown() override { vessa::hax::clearHostCache(); }
};

// The launcher's answer to the description request: key=value lines, the later of two lines winning. A
// failed run leaves the description alone; an empty answer still finishes.
TEST_F(HostTest, DescriptionIsReadThroughTheLauncherAtConstruction) {
    const struct {
        const char* answer;
        int status;
        const char* described;  // tools version|OS name|build OS
        std::vector<std::string> logged;
    } cases[] = {
        {"vltt.version=7.1\nos.name= Linux \nbuild.os=linux\nnoequals\nvltt.version=7.2",
         0,
         "7.2|Linux|linux",
         {"Executing vessa.shed.env on 127.0.0.1", "Setting os.name =  Linux ",
          "Setting noequals = ", "Finished parsing output."}},
        {"vltt.version=9\n", 3, "||", {"Execution failed"}},
        {"", 0, "||", {"Finished parsing output."}},
    };
    for (const auto& c : cases) {
        vessa::hax::clearHostCache();
        FakeProgram pelo("pelo", c.answer, c.status);
        vessa::test::LogCapture log;
        std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
        EXPECT_EQ(pelo.calls(), (std::vector<std::vector<std::string>>{
                                    {"--host", "127.0.0.1", "--exec", "vessa.shed.env", "--no-lm"}}));
        EXPECT_EQ(host->toolsVersion() + "|" + host->osName() + "|" + host->buildOs(), c.described)
            << c.answer;
        for (const std::string& message : c.logged) {
            EXPECT_TRUE(log.hasMessage(message)) << message;
        }
        EXPECT_EQ(log.hasMessage("Parsing output"), c.status == 0) << c.answer;
    }
}

TEST_F(HostTest, ExistsFSItemSplitsDirectoryAndNameCaseInsensitively) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->dirs = {{"/tmp", {"dir", "other"}}, {"/sys/block/sda", {"holders", "sda1"}}, {"nosep", {""}}};
    vessa::test::ScopedView scoped(std::move(view));
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    for (const char* path : {"/tmp/Dir/", "/tmp/DIR", "/sys/block/sda/holders", "nosep", "/tmp\\other"}) {
        EXPECT_TRUE(host->existsFSItem(path, vessa::hax::FSItem::any)) << path;
    }
    for (const char* path : {"/tmp/dirx", "/nowhere/x"}) {
        EXPECT_FALSE(host->existsFSItem(path, vessa::hax::FSItem::any)) << path;
    }
    std::list<vessa::hax::FSItem> items;
    EXPECT_EQ(host->fill("/nowhere", items), 0);  // agent errors give 0, never an exception
}

TEST_F(HostTest, LocalNamesShareOneIdentityAndTheAgentKnowsEveryHost) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->host = "SnapHost";
    vessa::test::ScopedView scoped(std::move(view));
    for (const char* name : {"127.0.0.1", "localhost", "snaphost", "SNAPHOST"}) {
        EXPECT_EQ(std::unique_ptr<Host>(Host::named(name, false))->id(), "127.0.0.1") << name;
    }
    vessa::hax::clearHostCache();
    std::unique_ptr<Host> local(Host::named("snaphost", false)), remote(Host::named("192.0.2.10", false));
    EXPECT_EQ(remote->id() + " " + remote->address().text(), "192.0.2.10 192.0.2.10");
    EXPECT_TRUE(Host::exists("SNAPhost") && Host::exists("192.0.2.10"));
    EXPECT_FALSE(Host::exists("otherhost"));
    std::list<Host*> hosts = {local.get(), remote.get()};
    EXPECT_EQ(Host::fill(hosts), 4);  // two held before, two known to the agent
    for (auto it = std::next(hosts.begin(), 2); it != hosts.end(); ++it) {
        delete *it;
    }
}

TEST_F(HostTest, CopiesShareStorageAndTheDestructorFreesIt) {
    vessa::test::LogCapture log;
    auto* host = Host::named("127.0.0.1", false);
    host->storage().push_back(new Storage(Storage::physicalStorage, "d", "/dev/d", 1, 0, "", 0, {}));
    Host copy(*host);
    EXPECT_EQ(copy.storage().front(), host->storage().front());
    copy.storage().clear();  // one side gives up the shared items before either is destroyed
    delete host;
    EXPECT_TRUE(log.hasMessage("Descructing all storage items on 127.0.0.1"));
    EXPECT_TRUE(log.hasMessage("Destructing \"d\""));
    Host& self = copy;
    copy = self;
    EXPECT_EQ(copy.name(), "127.0.0.1");
}

}  // namespace
