#include "lin/DiskBy.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::lin::DiskBy;

namespace {

// Every alias of the four directories as "alias -> target kind"; a target already absolute is kept.
std::string readAliases() {
    vessa::hax::clearHostCache();
    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
    std::list<DiskBy*> list;
    EXPECT_TRUE(DiskBy::readDisksBy(list, host.get()));
    std::string out;
    for (const DiskBy* d : list) {
        out += d->alias() + " -> " + d->target() + " " + std::to_string(d->kind()) + "\n";
        delete d;
    }
    vessa::hax::clearHostCache();
    return out;
}

TEST(DiskBy, ReadsTheFourDirectoriesThroughTheHost) {
    {
        vessa::test::ScopedView scoped(std::make_unique<vessa::test::ScriptedView>());
        EXPECT_EQ(readAliases(), "");
    }
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
    vessa::test::ScopedView scoped(root.path());
    vessa::test::LogCapture log;
    EXPECT_EQ(readAliases(),
              "ata-WDC_WD10EZEX -> /dev/sda 0\n"
              "DATA\\x20SET -> /dev/sda1 1\n"
              "pci-0000:00:1f.2-ata-1 -> /dev/sdb 2\n"
              "1234-ABCD -> /dev/dm-3 3\n");
    EXPECT_TRUE(log.hasMessage("Alias by uuid: 1234-ABCD -> /dev/dm-3"));
}

}  // namespace
