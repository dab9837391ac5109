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
        {"lvm/pvdisplay-group-and-new-pv-loops.txt", {"loop0", "loop1", "loop2"}, "vessacap2", "", "yes"},
        {"lvm/forum2008-pvdisplay-pe-size-kbyte-two-pvs.txt",
         {"sdb4", "sdb3"},
         "home",
         "4096",
         "yes (but full)"},
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
    // A volume outside any group: its block follows the tool's "is a new physical volume" line.
    Owned<PhysicalVolume> fresh;
    PhysicalVolume::parse(vessa::test::dataBody("lvm/pvdisplay-group-and-new-pv-loops.txt"), fresh.list);
    ASSERT_EQ(fresh.list.size(), 3u);
    EXPECT_EQ(fresh.list.back()->vgName(), "");
    EXPECT_EQ(fresh.list.back()->allocatable(), "NO");
    EXPECT_EQ(fresh.list.back()->pvSize(), "32.00 MiB");
    EXPECT_EQ(fresh.list.back()->uuid(), "Vp8Qmt-esNW-Sz66-b72g-55Vc-mFzC-Me3QyF");

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

TEST(Lvm, VolumeGroupOfAnOldFormatTool) {
    vessa::test::LogCapture log;
    Owned<VolumeGroup> vgs;
    VolumeGroup::parse(vessa::test::dataBody("lvm/lkml2003-vgdisplay-lvm1-format.txt"), vgs.list);
    ASSERT_EQ(vgs.list.size(), 1u);
    const VolumeGroup& vg = *vgs.list.front();
    EXPECT_EQ(vg.name(), "system");
    EXPECT_EQ(vg.value(VolumeGroup::SystemID), "kvo.local.org1047770061");
    EXPECT_EQ(vg.value(VolumeGroup::Format), "lvm1");
    EXPECT_EQ(vg.value(VolumeGroup::MaximumLV), "256");
    EXPECT_EQ(vg.value(VolumeGroup::MetadataAreas), "");  // not printed by this tool
    EXPECT_EQ(vg.value(VolumeGroup::Size), "11.58 GB");
    EXPECT_EQ(vg.value(VolumeGroup::AllocPE), "2964 / 11.58 GB");
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"[lin/VolumeGroup.cpp] readVgDisplay: Current VG: system"});
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
        // A volume group block and debug lines before the first volume make no record of their own.
        {"lvm/insights-lvdisplay-clustered-vg-mirrored.txt", 2, "lvsapp01ap01-old",
         "vgp01app/lvsapp01ap01-old", 253, 50, "open                 0"},
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
    view->commands["vgdisplay"] = {vessa::sal::sys::RunOutcome::NotStarted, 0, ""};
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
