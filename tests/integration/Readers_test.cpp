// The discovery readers against what a TestMachine made on this machine, plus a physical volume outside
// any group. Root only; everything is undone by destructors, also when the test fails.
#include <gtest/gtest.h>

#include <memory>

#include "lin/LogicalVolume.h"
#include "lin/MTableEntry.h"
#include "lin/PhysicalVolume.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
#include "lin/VolumeGroup.h"
#include "lin/common.h"
#include "platform/Stat.h"
#include "support/LoopDevice.h"
#include "support/Owned.h"
#include "target/Host.h"

using namespace vessa::target::lin;
using vessa::target::Storage;
using vessa::test::Owned;
using vessa::test::run;

namespace {

TEST(LiveReaders, EveryReaderSeesWhatTheTestMachineMade) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices and LVM";
    }
    vessa::test::TestMachine m;
    ASSERT_TRUE(m.ok);
    vessa::test::LoopDevice lone(32 << 20);
    ASSERT_TRUE(lone.ok());
    ASSERT_EQ(run("pvcreate -q " + lone.device()), 0);
    const std::shared_ptr<void> pvremove(nullptr, [&lone](void*) { run("pvremove -q -f " + lone.device()); });
    vessa::hax::clearHostCache();

    // The blank 16 MiB loop device: kernel lists, node, and no SCSI device behind it.
    Owned<ProcPartition> parts;
    ProcPartition::readProcPartitions(parts);
    const ProcPartition* p = parts.named(m.blank.name());
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(std::to_string(p->blocks()) + " " + std::to_string(p->major()), "16384 7");
    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
    Owned<SysBlock> disks;
    SysBlock::readSysFs(disks, parts, host.get());
    const SysBlock* s = disks.named(m.blank.name());
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(std::to_string(s->size()) + " " + std::to_string(s->major()), "32768 7");  // 512-byte sectors
    std::string inquiry = "x", address;
    getInquiry(m.blank.name(), inquiry, 1);
    EXPECT_EQ(inquiry, std::string(28, ' '));
    getScsiAddress(m.blank.device(), address);
    EXPECT_EQ(address, "None");
    vessa::sal::fs::Stat st(m.blank.device());
    EXPECT_TRUE(st.exists() && st.isBlockDevice() && st.blockSize() > 0);
    EXPECT_EQ(st.size(), 16 << 20);
    EXPECT_EQ(st.blockSizeByRC() + st.blockSizeByRC16(), 0u);

    Owned<MTableEntry> mounts;
    ASSERT_TRUE(MTableEntry::readMTab(mounts, nullptr));
    std::string found;
    for (const MTableEntry* e : mounts) {
        found += e->mountPoint() == m.mountPoint ? e->deviceName() + " " + e->fileSystemType() : "";
    }
    EXPECT_EQ(found, m.mounted.device() + " ext4");

    // Volumes are named loopN, without "/dev/". Current tools print "PE Size" without "(KByte)".
    Owned<PhysicalVolume> pvs;
    PhysicalVolume::readPvDisplay(pvs, nullptr);
    for (const auto& [loop, expected] : {std::pair{&m.pvA, m.volumeGroup + "|yes|15|"},
                                         {&m.pvB, m.volumeGroup + "|yes|15|"},
                                         {&lone, "|NO|0|"}}) {
        const PhysicalVolume* pv = pvs.named(loop->name());
        ASSERT_NE(pv, nullptr) << loop->name();
        EXPECT_EQ(pv->vgName() + "|" + pv->allocatable() + "|" + pv->totalPE() + "|" + pv->peSize(),
                  expected);
    }
    Owned<VolumeGroup> vgs;
    VolumeGroup::readVgDisplay(vgs, nullptr);
    VolumeGroup* group = vgs.named(m.volumeGroup);
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(group->value(VolumeGroup::CurrentPV) + " " + group->value(VolumeGroup::ActualPV) + " " +
                  group->value(VolumeGroup::CurrentLV) + " " + group->value(VolumeGroup::TotalPE),
              "2 2 0 30");
    Storage::exclusions ex = 0;
    group->getExclusions(ex);
    EXPECT_EQ(ex, Storage::kVolumeGroup);
    Owned<LogicalVolume> lvs;
    LogicalVolume::readLvDisplay(lvs, nullptr);
    for (const LogicalVolume* lv : lvs) {
        EXPECT_NE(lv->vgName(), m.volumeGroup) << lv->name();
    }
}

}  // namespace
