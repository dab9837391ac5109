#include "lin/DiskBy.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::lin::DiskBy;

namespace {

TEST(DiskBy, ReadsTheFourDirectoriesThroughTheHost) {
    vessa::test::TempDir root;
    namespace fs = std::filesystem;
    for (const char* d : {"by-id", "by-label", "by-path", "by-uuid"}) {
        fs::create_directories(root.path() + "/dev/disk/" + d);
    }
    fs::create_symlink("../../sda", root.path() + "/dev/disk/by-id/ata-WDC_WD10EZEX");
    fs::create_symlink("../../sda1", root.path() + "/dev/disk/by-label/DATA\\x20SET");
    fs::create_symlink("/dev/sdb", root.path() + "/dev/disk/by-path/pci-0000:00:1f.2-ata-1");
    fs::create_symlink("../../dm-3", root.path() + "/dev/disk/by-uuid/1234-ABCD");
    root.write("dev/disk/by-uuid/not-a-link", "x");
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(root.path());
    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
    vessa::test::LogCapture log;
    std::list<DiskBy*> list;
    EXPECT_TRUE(DiskBy::readDisksBy(list, host.get()));
    std::vector<std::tuple<std::string, std::string, int>> got;
    for (const DiskBy* d : list) {
        got.emplace_back(d->alias(), d->target(), d->kind());
    }
    EXPECT_EQ(got, (std::vector<std::tuple<std::string, std::string, int>>{
                       {"ata-WDC_WD10EZEX", "/dev/sda", 0},
                       {"DATA\\x20SET", "/dev/sda1", 1},
                       {"pci-0000:00:1f.2-ata-1", "/dev/sdb", 2},
                       {"1234-ABCD", "/dev/dm-3", 3}}));
    EXPECT_TRUE(log.hasMessage("Alias by uuid: 1234-ABCD -> /dev/dm-3"));
    std::map<std::string, vessa::target::Property> props;
    list.back()->addProperties("3", props);
    ASSERT_EQ(props.count("AliasBy UUID3"), 1u);
    EXPECT_EQ(props.at("AliasBy UUID3").value(), "1234-ABCD");
    EXPECT_EQ(props.at("AliasBy UUID3").category(), "Aliases");
    for (DiskBy* d : list) {
        delete d;
    }
    vessa::hax::clearHostCache();
}

TEST(DiskBy, MissingDirectoriesGiveNothing) {
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::make_unique<vessa::test::ScriptedView>());
    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
    std::list<DiskBy*> list;
    EXPECT_TRUE(DiskBy::readDisksBy(list, host.get()));
    EXPECT_TRUE(list.empty());
    vessa::hax::clearHostCache();
}

}  // namespace
