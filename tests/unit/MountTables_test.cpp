#include <gtest/gtest.h>

#include "lin/FileSystemTypes.h"
#include "lin/FsTableEntry.h"
#include "lin/MTableEntry.h"
#include "lin/Partition.h"
#include "support/Owned.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using vessa::target::Storage;
using namespace vessa::target::lin;

namespace {

bool readableDevices(const std::string& device) {
    return device == "/dev/sda1" || device == "/dev/sda2";
}

std::vector<std::string> mountPoints(const std::list<MTableEntry*>& list) {
    std::vector<std::string> out;
    for (const MTableEntry* e : list) {
        out.push_back(e->mountPoint());
    }
    return out;
}

TEST(MTableEntry, WhatIsKeptAndWhy) {
    vessa::test::LogCapture log;
    vessa::test::Owned<MTableEntry> list;
    MTableEntry::parse(
        "/dev/sda1 / ext4 rw 0 0\n# comment\n\nproc /proc proc rw 0 0\ntmpfs /run tmpfs rw 0 0\n"
        "server:/export /mnt/nfs nfs4 rw 0 0\n//srv/share /mnt/cifs cifs rw 0 0\n"
        "user@host:/ /mnt/ssh fuse.sshfs rw 0 0\n/dev/sdq /mnt/gone ext4 rw 0 0\n"
        "/dev/sdr /mnt/odd xnfs rw 0 0\n/dev/sda2\tswap\tswap\tdefaults 0 0\n"
        "/dev/sda1 /mnt/with\\040space ext4 rw 0 0\n",
        list, readableDevices);
    // An unreadable device (sdq; sdr, whose type only contains "nfs") is left out.
    EXPECT_EQ(mountPoints(list), (std::vector<std::string>{"/", "/mnt/nfs", "/mnt/cifs", "/mnt/ssh", "swap",
                                                           "/mnt/with space"}));
    EXPECT_TRUE(log.hasMessage("SKIP"));
    EXPECT_TRUE(log.hasMessage("Found /dev/sdq, but could not read from it."));
    EXPECT_TRUE(log.hasMessage("Found /dev/sdr, but could not read from it."));
    EXPECT_TRUE(log.hasMessage("Adding drive server:/export"));
    EXPECT_TRUE(log.hasMessage("Filesystem \"/dev/sda1\" mounted at \"/\" formatted as ext4"));
    vessa::test::Owned<MTableEntry> real;
    MTableEntry::parse(vessa::test::dataBody("mounts/libstorage-proc-mounts-octal-escape.txt"), real,
                       [](const std::string&) { return true; });
    EXPECT_EQ(mountPoints(real), (std::vector<std::string>{"/data", "/test/mountpoint with spaces"}));
    vessa::test::ScopedView scoped(std::make_unique<vessa::test::ScriptedView>());
    EXPECT_FALSE(MTableEntry::readMTab(real, nullptr));  // no table at all
    EXPECT_EQ(real.size(), 2u);
}

TEST(MountTables, ExclusionsByExactMountPoint) {
    const struct {
        const char* mountPoint;
        Storage::exclusions ex;
    } cases[] = {{"/", Storage::kSystem},
                 {"/boot", Storage::kBoot},
                 {"swap", Storage::kSwap},
                 {"/boot/efi", 0},
                 {"/swap", 0},
                 {"", 0}};
    for (const auto& c : cases) {
        Storage::exclusions a = 0, b = 0;
        MTableEntry("x", "/dev/x", "ext4").getExclusions(a);
        MTableEntry(c.mountPoint, "/dev/x", "ext4").getExclusions(a);
        FsTableEntry(c.mountPoint, "/dev/x", "ext4", true).getExclusions(b);
        EXPECT_EQ(a, c.ex) << c.mountPoint;
        EXPECT_EQ(b, c.ex) << c.mountPoint;
    }
}

TEST(FsTableEntry, ColumnsSplitAtBlanksOnlyAndMountPointsAreQueried) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->dirs["/"] = {};
    view->dirs["/boot"] = {};
    vessa::test::ScopedView scoped(std::move(view));
    vessa::test::LogCapture log;
    vessa::test::Owned<FsTableEntry> list;
    FsTableEntry::parse(
        "# /etc/fstab\nUUID=1234-ABCD /boot vfat defaults 0 2\n/dev/sda1   /   ext4   defaults 1 1\n"
        "/dev/sda3\t/data\text4\tdefaults\t0 0\n/dev/sda2 swap swap defaults 0 0\nLABEL=x\n",
        list);
    // Tabs do not separate; "swap" is no directory that answers statfs.
    std::vector<std::string> entries;
    for (const FsTableEntry* e : list) {
        entries.push_back(e->deviceName() + "|" + e->mountPoint() + "|" + e->fileSystemType() + "|" +
                          (e->flag() ? "queried" : "-"));
    }
    EXPECT_EQ(entries,
              (std::vector<std::string>{"UUID=1234-ABCD|/boot|vfat|queried", "/dev/sda1|/|ext4|queried",
                                        "/dev/sda3\t/data\text4\tdefaults\t0|0||-", "/dev/sda2|swap|swap|-",
                                        "LABEL=x|||-"}));
    EXPECT_TRUE(log.hasMessage("Logical Volume \"/dev/sda1\" mounted at \"/\" formatted as ext4"));
}

TEST(FileSystemTypes, KernelMagicNumbers) {
    EXPECT_EQ(fileSystemName(0x12345), "");
    vessa::test::LogCapture log;
    Partition p("sda1", 1, "/", nullptr, "");
    p.setFileSystem(0x9fa0);
    EXPECT_EQ(p.fileSystem(), "PROC");
    EXPECT_TRUE(log.hasMessage("Found FS Type: \"PROC\""));
}

}  // namespace
