#include <gtest/gtest.h>

#include "lin/LogicalVolume.h"
#include "lin/LvmDisplay.h"
#include "lin/PhysicalVolume.h"
#include "lin/VolumeGroup.h"
#include "platform/Exception.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using vessa::target::Storage;
using namespace vessa::target::lin;

namespace {

template <class T>
struct Owned {
    std::list<T*> list;
    ~Owned() {
        for (T* t : list) {
            delete t;
        }
    }
};

TEST(Lvm, ValueExtraction) {
    EXPECT_EQ(lvmValue("  PV Name               /dev/loop0  ", "PV Name"), "/dev/loop0");
    EXPECT_EQ(lvmValue("  Allocatable           yes ", "Allocatable"), "yes");
    EXPECT_EQ(lvmValue("  # open                 1", "#open"), "open                 1");
    EXPECT_EQ(lvmValue("ab", "#open"), "");
}

TEST(Lvm, PhysicalVolumesOfRealMachines) {
    const struct {
        const char* file;
        std::vector<std::string> names;
        const char* vg;
        const char* peSize;
        const char* allocatable;
    } cases[] = {
        {"lvm/pvdisplay-two-loops.txt", {"loop0", "loop1"}, "vessacap", "", "yes"},
        {"lvm/lkml2003-pvdisplay-lvm1-on-md0-pe-size-kbyte.txt", {"md0"}, "system", "4096", "yes (but full)"},
        {"lvm/notes-pvdisplay-centos-pv-on-md126-warning.txt", {"md126"}, "centos", "", "yes"},
        {"lvm/notes-pvdisplay-pv-on-mapper-mpath.txt",
         {"mapper/mpathb", "mapper/mpathc"},
         "HotStorage",
         "",
         ""},
    };
    for (const auto& c : cases) {
        Owned<PhysicalVolume> pvs;
        PhysicalVolume::parse(vessa::test::dataBody(c.file), pvs.list);
        std::vector<std::string> names;
        for (const PhysicalVolume* pv : pvs.list) {
            names.push_back(pv->name());
        }
        EXPECT_EQ(names, c.names) << c.file;
        ASSERT_FALSE(pvs.list.empty());
        EXPECT_EQ(pvs.list.front()->vgName(), c.vg) << c.file;
        EXPECT_EQ(pvs.list.front()->peSize(), c.peSize) << c.file;
        if (*c.allocatable) {
            EXPECT_EQ(pvs.list.front()->allocatable(), c.allocatable) << c.file;
        }
        Storage::exclusions ex = 0;
        pvs.list.front()->getExclusions(ex);
        EXPECT_EQ(ex, 0u);
    }
    Owned<PhysicalVolume> loops;
    PhysicalVolume::parse(vessa::test::dataBody("lvm/pvdisplay-two-loops.txt"), loops.list);
    EXPECT_EQ(loops.list.back()->totalPE(), "15");
    EXPECT_EQ(loops.list.back()->uuid(), "QgTAWc-xwuB-kQs7-WIMw-4M4x-U1kc-tDP5Uv");
    std::map<std::string, vessa::target::Property> props;
    loops.list.front()->addProperties("", props);
    EXPECT_EQ(props.size(), 9u);
    EXPECT_EQ(props.at("PVAllocatable").description(),
              "Indicates wether or not the physical volume is available for allocation.");
    EXPECT_EQ(props.at("PVName").category(), "Physical Volume \"loop0\"");
}

TEST(Lvm, VolumeGroupOfThisMachine) {
    Owned<VolumeGroup> vgs;
    VolumeGroup::parse(vessa::test::dataBody("lvm/vgdisplay-loops.txt"), vgs.list);
    ASSERT_EQ(vgs.list.size(), 1u);
    const VolumeGroup& vg = *vgs.list.front();
    EXPECT_EQ(vg.name(), "vessacap");
    EXPECT_EQ(vg.value(VolumeGroup::ActualPV), "2");
    EXPECT_EQ(vg.value(VolumeGroup::AllocPE), "0 / 0");
    EXPECT_EQ(vg.value(VolumeGroup::FreePE), "");  // the tool writes "Free  PE" with two blanks
    EXPECT_EQ(vg.value(VolumeGroup::PESize), "4.00 MiB");
    EXPECT_EQ(vg.value(VolumeGroup::MetadataSeqNo), "1");
    EXPECT_EQ(vg.value(VolumeGroup::Uuid), "DxYfAn-nXO2-76aO-aSV0-Z3nI-CE9Q-brho3x");
    Storage::exclusions ex = 0;
    vgs.list.front()->getExclusions(ex);
    EXPECT_EQ(ex, Storage::kVolumeGroup);
    std::map<std::string, vessa::target::Property> props;
    vgs.list.front()->addProperties("", props);
    EXPECT_EQ(props.size(), 19u);
    EXPECT_EQ(props.at("VGMetadataSeqNo").description(), "Metadata sequence number?");
}

TEST(Lvm, LogicalVolumesOldAndCurrentForms) {
    const struct {
        const char* file;
        std::size_t count;
        const char* name;
        const char* device;
        int major, minor;
        const char* open;
    } cases[] = {
        {"lvm/lkml2003-lvdisplay-lvm1-old-lvname-path.txt", 0, "system/root", "system/root", 254, 0,
         "open                 2"},
        {"lvm/notes-lvdisplay-centos-on-md126-warning.txt", 2, "swap", "centos/swap", 253, 0,
         "open                 2"},
    };
    for (const auto& c : cases) {
        Owned<LogicalVolume> lvs;
        LogicalVolume::parse(vessa::test::dataBody(c.file), lvs.list);
        ASSERT_FALSE(lvs.list.empty()) << c.file;
        if (c.count) {
            EXPECT_EQ(lvs.list.size(), c.count);
        }
        const LogicalVolume& lv = *lvs.list.front();
        EXPECT_EQ(lv.name(), c.name);
        EXPECT_EQ(lv.deviceName(), c.device);
        EXPECT_EQ(lv.major(), c.major);
        EXPECT_EQ(lv.minor(), c.minor);
        EXPECT_EQ(lv.value(LogicalVolume::OpenCount), c.open);
    }
    Owned<LogicalVolume> bad;
    EXPECT_THROW(LogicalVolume::parse("  LV Name x\n  Block device  none\n", bad.list), vessa::Exception);
}

TEST(Lvm, ReadersRunTheirToolsAndIgnoreOnlyRunnerFailures) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->commands["pvdisplay"] = {true, 5, "  PV Name /dev/sdb\n  VG Name vg\n"};
    view->commands["vgdisplay"] = {false, 0, ""};
    vessa::test::ScopedView scoped(std::move(view));
    Owned<PhysicalVolume> pvs;
    Owned<VolumeGroup> vgs;
    Owned<LogicalVolume> lvs;
    EXPECT_TRUE(PhysicalVolume::readPvDisplay(pvs.list, nullptr));
    EXPECT_TRUE(VolumeGroup::readVgDisplay(vgs.list, nullptr));
    EXPECT_TRUE(LogicalVolume::readLvDisplay(lvs.list, nullptr));
    ASSERT_EQ(pvs.list.size(), 1u);
    EXPECT_EQ(pvs.list.front()->name(), "sdb");
    EXPECT_TRUE(vgs.list.empty());
    EXPECT_TRUE(lvs.list.empty());
}

}  // namespace
