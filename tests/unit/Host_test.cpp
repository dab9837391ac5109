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

TEST_F(HostTest, DescriptionIsReadThroughTheLauncherAtConstruction) {
    FakeProgram pelo("pelo",
                     "vltt.version=7.1\n"
                     "os.name= Linux \n"
                     "os.version =ignored\n"
                     "cpu.count=4=5\n"
                     "build.os=linux\n"
                     "noequals\n"
                     "vltt.version=7.2");
    vessa::test::LogCapture log;
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    ASSERT_EQ(pelo.calls().size(), 1u);
    EXPECT_EQ(pelo.calls()[0],
              (std::vector<std::string>{"--host", "127.0.0.1", "--exec", "vessa.shed.env", "--no-lm"}));
    EXPECT_EQ(host->toolsVersion(), "7.2");  // the later line wins
    EXPECT_EQ(host->osName(), "Linux");
    EXPECT_EQ(host->osVersion(), "");  // a blank before "=" makes the key unknown
    EXPECT_EQ(host->cpuCount(), "4=5");
    EXPECT_EQ(host->buildOs(), "linux");
    EXPECT_TRUE(log.hasMessage("Executing vessa.shed.env on 127.0.0.1"));
    EXPECT_TRUE(log.hasMessage("Setting os.name =  Linux "));
    EXPECT_TRUE(log.hasMessage("Setting noequals = "));
    EXPECT_TRUE(log.hasMessage("Finished parsing output."));
}

TEST_F(HostTest, FailedLauncherLeavesTheDescriptionAlone) {
    FakeProgram pelo("pelo", "vltt.version=9\n", 3);
    vessa::test::LogCapture log;
    std::unique_ptr<Host> host(Host::named("localhost", false));
    EXPECT_EQ(host->toolsVersion(), "");
    EXPECT_TRUE(log.hasMessage("Execution failed"));
    EXPECT_FALSE(log.hasMessage("Parsing output"));
}

TEST_F(HostTest, EmptyOutputStillFinishes) {
    FakeProgram pelo("pelo", "");
    vessa::test::LogCapture log;
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    EXPECT_TRUE(log.hasMessage("Finished parsing output."));
}

TEST_F(HostTest, ExistsFSItemSplitsDirectoryAndNameCaseInsensitively) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->dirs["/tmp"] = {"dir", "other"};
    view->dirs["/sys/block/sda"] = {"holders", "sda1"};
    view->dirs["nosep"] = {""};
    vessa::test::ScopedView scoped(std::move(view));
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    const struct {
        const char* path;
        bool found;
    } cases[] = {
        {"/tmp/Dir/", true},   {"/tmp/DIR", true}, {"/tmp/dirx", false},  {"/sys/block/sda/holders", true},
        {"/nowhere/x", false}, {"nosep", true},    {"/tmp\\other", true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(host->existsFSItem(c.path, vessa::hax::FSItem::any), c.found) << c.path;
    }
    std::list<vessa::hax::FSItem> items;
    EXPECT_EQ(host->fill("/nowhere", items), 0);  // agent errors give 0, never an exception
}

TEST_F(HostTest, LocalNamesShareOneIdentity) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->host = "SnapHost";
    vessa::test::ScopedView scoped(std::move(view));
    for (const char* name : {"127.0.0.1", "localhost", "snaphost", "SNAPHOST"}) {
        std::unique_ptr<Host> h(Host::named(name, false));
        EXPECT_EQ(h->id(), "127.0.0.1") << name;
    }
    std::unique_ptr<Host> remote(Host::named("192.0.2.10", false));
    EXPECT_EQ(remote->id(), "192.0.2.10");
    EXPECT_EQ(remote->address().text(), "192.0.2.10");
}

TEST_F(HostTest, ExistsAndFillOverTheAgentsHosts) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->host = "myhost";
    vessa::test::ScopedView scoped(std::move(view));
    std::unique_ptr<Host> local(Host::named("myhost", false));
    std::unique_ptr<Host> remote(Host::named("192.0.2.10", false));
    EXPECT_TRUE(Host::exists("MyHost"));
    EXPECT_TRUE(Host::exists("192.0.2.10"));
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
