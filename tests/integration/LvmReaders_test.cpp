// The LVM display readers against physical volumes and a volume group made here on loop devices. Root
// only; the group, the volumes and the loops are removed by destructors, also when a test fails.
#include <gtest/gtest.h>

#include <unistd.h>

#include "lin/LogicalVolume.h"
#include "lin/PhysicalVolume.h"
#include "lin/VolumeGroup.h"
#include "support/LoopDevice.h"

using namespace vessa::target::lin;
using vessa::target::Storage;
using vessa::test::LoopDevice;

namespace {

template <class T>
struct Owned {
    std::list<T*> list;
    ~Owned() {
        for (T* t : list) {
            delete t;
        }
    }
    T* named(const std::string& name) const {
        for (T* t : list) {
            if (t->name() == name) {
                return t;
            }
        }
        return nullptr;
    }
};

TEST(LvmReaders, VolumesInAGroupAndOneOutsideIt) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices and LVM";
    }
    if (vessa::test::run("pvcreate --version") != 0) {
        GTEST_SKIP() << "needs the LVM tools";
    }
    LoopDevice a(64 * 1024 * 1024), b(64 * 1024 * 1024), lone(32 * 1024 * 1024);
    ASSERT_TRUE(a.ok() && b.ok() && lone.ok());
    const std::string vg = "vessalvm" + std::to_string(::getpid());
    // Declared after the loops, so run before they are detached.
    struct Cleanup {
        std::string vg, devices;
        ~Cleanup() {
            vessa::test::run("vgremove -q -f " + vg);
            vessa::test::run("pvremove -q -f " + devices);
        }
    } cleanup{vg, a.device() + " " + b.device() + " " + lone.device()};
    ASSERT_EQ(vessa::test::run("pvcreate -q " + cleanup.devices), 0);
    ASSERT_EQ(vessa::test::run("vgcreate -q " + vg + " " + a.device() + " " + b.device()), 0);

    Owned<PhysicalVolume> pvs;
    EXPECT_TRUE(PhysicalVolume::readPvDisplay(pvs.list, nullptr));
    for (const LoopDevice* member : {&a, &b}) {
        const PhysicalVolume* pv = pvs.named(member->name());  // loopN, without "/dev/"
        ASSERT_NE(pv, nullptr) << member->name();
        EXPECT_EQ(pv->vgName(), vg);
        EXPECT_EQ(pv->allocatable(), "yes");
        EXPECT_EQ(pv->totalPE(), "15");
        EXPECT_EQ(pv->peSize(), "");  // current tools print "PE Size" without "(KByte)"
    }
    const PhysicalVolume* outside = pvs.named(lone.name());
    ASSERT_NE(outside, nullptr);
    EXPECT_EQ(outside->vgName(), "");
    EXPECT_EQ(outside->allocatable(), "NO");

    Owned<VolumeGroup> vgs;
    EXPECT_TRUE(VolumeGroup::readVgDisplay(vgs.list, nullptr));
    VolumeGroup* group = vgs.named(vg);
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(group->value(VolumeGroup::CurrentPV), "2");
    EXPECT_EQ(group->value(VolumeGroup::ActualPV), "2");
    EXPECT_EQ(group->value(VolumeGroup::CurrentLV), "0");
    EXPECT_EQ(group->value(VolumeGroup::TotalPE), "30");
    Storage::exclusions ex = 0;
    group->getExclusions(ex);
    EXPECT_EQ(ex, Storage::kVolumeGroup);

    Owned<LogicalVolume> lvs;
    EXPECT_TRUE(LogicalVolume::readLvDisplay(lvs.list, nullptr));
    for (const LogicalVolume* lv : lvs.list) {
        EXPECT_NE(lv->vgName(), vg) << lv->name();
    }
}

}  // namespace
