#include "lin/DeviceLink.h"

#include <gtest/gtest.h>

#include "lin/DiskBy.h"
#include "lin/FsTableEntry.h"
#include "lin/LogicalVolume.h"
#include "lin/MTableEntry.h"
#include "lin/PhysicalVolume.h"
#include "lin/ProcPartition.h"
#include "lin/VolumeGroup.h"
#include "support/Owned.h"

using namespace vessa::target::lin;

namespace {

// Sources for links made in a test; everything is freed with the fixture.
struct Sources {
    vessa::test::Owned<ProcPartition> parts;
    vessa::test::Owned<SysBlock> sysBlocks;
    vessa::test::Owned<DmTreeDev> dmDevs;
    vessa::test::Owned<PhysicalVolume> pvs;
    vessa::test::Owned<LogicalVolume> lvs;
    vessa::test::Owned<VolumeGroup> vgs;
    vessa::test::Owned<FsTableEntry> fstab;
    vessa::test::Owned<MTableEntry> mtab;
    vessa::test::Owned<DiskBy> aliases;
    std::list<std::unique_ptr<DeviceLink>> links;

    DeviceLink* link(const std::string& line) {
        parts.push_back(new ProcPartition(line, 0, 1, 2, 3));
        links.emplace_back(
            new DeviceLink(parts.back(), sysBlocks, dmDevs, pvs, lvs, vgs, fstab, mtab, aliases));
        return links.back().get();
    }
};

// The mount points of a link's fstab and mtab entries and the number of its aliases.
std::string mounts(const DeviceLink* link) {
    std::string out = "fstab";
    for (const FsTableEntry* f : link->fsTableEntries) {
        out += " " + f->mountPoint();
    }
    out += " mtab";
    for (const MTableEntry* m : link->mTableEntries) {
        out += " " + m->mountPoint();
    }
    return out + " aliases " + std::to_string(link->diskBys.size());
}

TEST(DeviceLink, PartitionsByName) {
    const struct {
        const char *part, *disk;
        bool is;
    } cases[] = {
        {"8 26 1 sdb10", "8 16 1 sdb", true},
        {"8 16 1 sdb", "8 26 1 sdb10", false},
        {"3 2 1 hdc2", "3 0 1 hdc", true},
        {"104 2 1 cciss/c0d0p2", "104 0 1 cciss/c0d0", true},
        {"104 2 1 cciss/c0d0x2", "104 0 1 cciss/c0d0", false},
        {"8 1 1 sdaa", "8 0 1 sda", false},
        {"8 0 1 sda", "8 0 1 sda", false},
        {"259 1 1 nvme0n1p1", "259 0 1 nvme0n1", false},
        {"104 1 1 cciss/c0d0p", "104 0 1 cciss/c0d0", false},
    };
    for (const auto& c : cases) {
        Sources s;
        EXPECT_EQ(s.link(c.part)->isPartitionOf(s.link(c.disk)), c.is) << c.part << " of " << c.disk;
    }
    Sources same;
    DeviceLink* one = same.link("8 0 1 sda");
    EXPECT_FALSE(one->isPartitionOf(one));
}

// A by-uuid fstab device matches by the alias's value; LABEL=DATA is compared as "ATA"; network and
// user-space mounts go to their pseudo entries.
TEST(DeviceLink, MountTablesAndAliasesAttachToTheirDevice) {
    Sources s;
    s.aliases.push_back(new DiskBy("../../sda1", "1234-ABCD", DiskBy::ByUuid));
    s.aliases.push_back(new DiskBy("../../sda1", "ATA", DiskBy::ByLabel));
    s.fstab.push_back(new FsTableEntry("/boot", "/dev/disk/by-uuid/1234-ABCD", "ext4", true));
    s.fstab.push_back(new FsTableEntry("/data", "LABEL=DATA", "ext4", true));
    s.fstab.push_back(new FsTableEntry("/x", "LABEL=ATA", "ext4", true));
    s.fstab.push_back(new FsTableEntry("/", "/dev/sda1", "ext4", true));
    s.fstab.push_back(new FsTableEntry("/o", "/dev/sdb1", "ext4", true));
    s.mtab.push_back(new MTableEntry("/mnt/n", "srv:/x", "nfs4"));
    s.mtab.push_back(new MTableEntry("/mnt/s", "u@h:/", "fuse.sshfs"));
    s.mtab.push_back(new MTableEntry("/", "/dev/sda1", "ext4"));
    EXPECT_EQ(mounts(s.link("8 1 100 sda1")), "fstab /boot /data / mtab / aliases 2");
    EXPECT_EQ(mounts(s.link(".nfs.")), "fstab mtab /mnt/n aliases 0");
    EXPECT_EQ(mounts(s.link(".fusefs.")), "fstab mtab /mnt/s aliases 0");
}

}  // namespace
