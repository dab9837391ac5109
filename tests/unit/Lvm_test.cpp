#include <gtest/gtest.h>

#include "lin/LogicalVolume.h"
#include "lin/LvmDisplay.h"
#include "lin/PhysicalVolume.h"
#include "lin/VolumeGroup.h"
#include "platform/Exception.h"
#include "support/Owned.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using vessa::target::Storage;
using namespace vessa::target::lin;
using vessa::test::Owned;

namespace {

TEST(Lvm, ValueExtraction) {
    EXPECT_EQ(lvmValue("  PV Name               /dev/loop0  ", "PV Name"), "/dev/loop0");
    EXPECT_EQ(lvmValue("  Allocatable           yes ", "Allocatable"), "yes");
    EXPECT_EQ(lvmValue("  # open                 1", "#open"), "open                 1");
    EXPECT_EQ(lvmValue("ab", "#open"), "");
}

// Every volume's name, and the last one's group, allocatable, PE size (printed by old tools only), total
// PE and UUID; a volume outside any group follows the tool's "is a new physical volume" line.
TEST(Lvm, PhysicalVolumesOfRealMachines) {
    const std::tuple<const char*, std::vector<std::string>, const char*> cases[] = {
        {"lvm/pvdisplay-two-loops.txt",
         {"loop0", "loop1"},
         "vessacap|yes||15|QgTAWc-xwuB-kQs7-WIMw-4M4x-U1kc-tDP5Uv"},
        {"lvm/pvdisplay-group-and-new-pv-loops.txt",
         {"loop0", "loop1", "loop2"},
         "|NO||0|Vp8Qmt-esNW-Sz66-b72g-55Vc-mFzC-Me3QyF"},
        {"lvm/forum2008-pvdisplay-pe-size-kbyte-two-pvs.txt",
         {"sdb4", "sdb3"},
         "home|yes (but full)|4096|23583|8k4Nix-Q4SY-zBrm-G2yk-bCqV-4olv-S6MY3p"},
        {"lvm/lkml2003-pvdisplay-lvm1-on-md0-pe-size-kbyte.txt",
         {"md0"},
         "system|yes (but full)|4096|2964|uYHQYU-TmrF-I3Ws-674P-v3Rx-4CPz-mOe5Tu"},
        {"lvm/notes-pvdisplay-centos-pv-on-md126-warning.txt",
         {"md126"},
         "centos|yes||17020|h13xmy-2l1I-iqS9-kcsW-X6dk-LOYg-Jp2omI"},
        {"lvm/notes-pvdisplay-pv-on-mapper-mpath.txt",
         {"mapper/mpathb", "mapper/mpathc"},
         "HotStorage|yes (but full)||393215|GvXD22-VZuM-eYm0-Gw6r-SU40-vkw6-VlPkAU"},
    };
    for (const auto& [file, expected, last] : cases) {
        Owned<PhysicalVolume> pvs;
        PhysicalVolume::parse(vessa::test::dataBody(file), pvs);
        std::vector<std::string> names;
        for (const PhysicalVolume* pv : pvs) {
            names.push_back(pv->name());
        }
        EXPECT_EQ(names, expected) << file;
        ASSERT_FALSE(pvs.empty());
        const PhysicalVolume& pv = *pvs.back();
        EXPECT_EQ(
            pv.vgName() + "|" + pv.allocatable() + "|" + pv.peSize() + "|" + pv.totalPE() + "|" + pv.uuid(),
            last);
        Storage::exclusions ex = 0;
        pvs.front()->getExclusions(ex);
        EXPECT_EQ(ex, 0u);
    }
}

// All nineteen values joined by "|". The current tool writes "Free  PE" with two blanks, which is not the
// key; the old one prints no metadata areas.
TEST(Lvm, VolumeGroupsOfRealMachines) {
    const std::pair<const char*, const char*> cases[] = {
        {"lvm/vgdisplay-loops.txt",
         "vessacap|2|0 / 0|0|2|lvm2||0|0|2|1|0|4.00 "
         "MiB||30|DxYfAn-nXO2-76aO-aSV0-Z3nI-CE9Q-brho3x|read/write|"
         "120.00 MiB|resizable"},
        {"lvm/lkml2003-vgdisplay-lvm1-format.txt",
         "system|1|2964 / 11.58 GB|1|1|lvm1||256|256|||0|4.00 MB|kvo.local.org1047770061|2964|"
         "AE3SH5-7pbd-itL5-firC-Sxis-0IXE-qMa5dD|read/write|11.58 GB|resizable"},
    };
    for (const auto& [file, expected] : cases) {
        vessa::test::LogCapture log;
        Owned<VolumeGroup> vgs;
        VolumeGroup::parse(vessa::test::dataBody(file), vgs);
        ASSERT_EQ(vgs.size(), 1u);
        std::string values = vgs.front()->value(VolumeGroup::Name);
        for (int f = VolumeGroup::Name + 1; f < VolumeGroup::FieldCount; ++f) {
            values += "|" + vgs.front()->value(static_cast<VolumeGroup::Field>(f));
        }
        EXPECT_EQ(values, expected);
        EXPECT_EQ(log.lines(), std::vector<std::string>{"[lin/VolumeGroup.cpp] readVgDisplay: Current VG: " +
                                                        vgs.front()->name()});
        Storage::exclusions ex = 0;
        vgs.front()->getExclusions(ex);
        EXPECT_EQ(ex, Storage::kVolumeGroup);
    }
}

// The first volume's name, device, numbers and open count, and how many volumes there are; a volume
// group block and debug lines before the first volume make no record of their own.
TEST(Lvm, LogicalVolumesOldAndCurrentForms) {
    const std::pair<const char*, const char*> cases[] = {
        {"lvm/lkml2003-lvdisplay-lvm1-old-lvname-path.txt",
         "system/root system/root 254:0 open                 2 1"},
        {"lvm/notes-lvdisplay-centos-on-md126-warning.txt",
         "swap centos/swap 253:0 open                 2 2"},
        {"lvm/insights-lvdisplay-clustered-vg-mirrored.txt",
         "lvsapp01ap01-old vgp01app/lvsapp01ap01-old 253:50 open                 0 2"},
    };
    for (const auto& [file, expected] : cases) {
        Owned<LogicalVolume> lvs;
        LogicalVolume::parse(vessa::test::dataBody(file), lvs);
        ASSERT_FALSE(lvs.empty()) << file;
        const LogicalVolume& lv = *lvs.front();
        EXPECT_EQ(lv.name() + " " + lv.deviceName() + " " + std::to_string(lv.major()) + ":" +
                      std::to_string(lv.minor()) + " " + lv.value(LogicalVolume::OpenCount) + " " +
                      std::to_string(lvs.size()),
                  expected);
    }
}

TEST(Lvm, ReadersRunTheirToolsAndIgnoreOnlyRunnerFailures) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->commands["pvdisplay"] = {true, 5, "  PV Name /dev/sdb\n  VG Name vg\n"};
    view->commands["vgdisplay"] = {vessa::sal::sys::RunOutcome::NotStarted, 0, ""};
    vessa::test::ScopedView scoped(std::move(view));
    Owned<PhysicalVolume> pvs;
    Owned<VolumeGroup> vgs;
    Owned<LogicalVolume> lvs;
    EXPECT_TRUE(PhysicalVolume::readPvDisplay(pvs, nullptr));
    EXPECT_TRUE(VolumeGroup::readVgDisplay(vgs, nullptr));
    EXPECT_TRUE(LogicalVolume::readLvDisplay(lvs, nullptr));
    ASSERT_EQ(pvs.size(), 1u);
    EXPECT_EQ(pvs.front()->name(), "sdb");
    EXPECT_TRUE(vgs.empty());
    EXPECT_TRUE(lvs.empty());
}

}  // namespace
