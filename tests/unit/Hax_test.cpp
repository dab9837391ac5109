#include "platform/hax/Hax.h"

#include <gtest/gtest.h>

#include "platform/Exception.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"

namespace {

TEST(Hax, LocalHostListsThroughTheViewAndCaches) {
    vessa::test::TempDir dir;
    dir.write("root/sys/block/sda/size", "1\n");
    dir.write("root/sys/block/loop0/size", "1\n");
    dir.write("root/sys/block/notes", "x");
    vessa::test::ScopedView scoped(dir.path() + "/root");
    vessa::hax::Host local = vessa::hax::Host::named("LOCALHOST", false);
    EXPECT_TRUE(local.isLocal());
    std::list<vessa::hax::FSItem> items;
    EXPECT_EQ(local.fill("/sys/block", items), 3);
    std::vector<std::pair<std::string, int>> got;
    for (const auto& i : items) {
        got.emplace_back(i.name(), i.type());
    }
    EXPECT_EQ(got, (std::vector<std::pair<std::string, int>>{{"loop0", vessa::hax::FSItem::directory},
                                                             {"notes", vessa::hax::FSItem::file},
                                                             {"sda", vessa::hax::FSItem::directory}}));
    EXPECT_EQ(vessa::hax::Host::fromCache("localhost").id(), "127.0.0.1");
    EXPECT_THROW(vessa::hax::Host::fromCache("nobody"), vessa::Exception);
}

TEST(Hax, EmptyHandleAndLocalFiles) {
    vessa::hax::Host none;
    EXPECT_THROW(none.name(), vessa::Exception);
    vessa::test::TempDir dir;
    const std::string a = dir.write("a", "data");
    vessa::hax::Host local = vessa::hax::Host::named("127.0.0.1", false);
    local.putFSItem(a, dir.path() + "/b");
    EXPECT_EQ(vessa::test::readFile(dir.path() + "/b"), "data");
    local.deleteFSItem(dir.path() + "/b");
    EXPECT_EQ(vessa::test::readFile(dir.path() + "/b"), "");
    vessa::hax::Process p = local.launch("/bin/sleep", {"30"});
    std::list<vessa::hax::Process> running;
    EXPECT_EQ(local.fill(running), 1);
    EXPECT_EQ(running.front().pid(), p.pid());
    local.killAllProcesses();
    running.clear();
    EXPECT_EQ(local.fill(running), 0);
}

}  // namespace
