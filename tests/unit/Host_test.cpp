#include "target/Host.h"

#include <gtest/gtest.h>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using vessa::target::Host;
using vessa::target::Storage;

namespace {

TEST(HostTest, ExistsFSItemSplitsDirectoryAndNameCaseInsensitively) {
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

TEST(HostTest, LocalNamesShareOneIdentityAndTheAgentKnowsEveryHost) {
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

TEST(HostTest, CopiesShareStorageAndTheDestructorFreesIt) {
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
