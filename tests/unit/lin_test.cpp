#include "lin/lin.h"

#include <gtest/gtest.h>

#include "lin/DeviceLink.h"
#include "lin/DmTreeDev.h"
#include "lin/ProcPartition.h"
#include "platform/Exception.h"
#include "support/Owned.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;

namespace {

// A machine with one disk sda: sda1 mounted at /boot, sda2 a physical volume of "vg" whose volumes
// root and home are mounted at / and /home, sda3 swap in fstab; a blank disk sdb; a disk sdc that
// holds a file system without a partition table; an empty disk sdd; and an nfs mount.
std::unique_ptr<vessa::test::ScriptedView> lvmMachine() {
    auto v = std::make_unique<vessa::test::ScriptedView>();
    v->host = "lvmhost";
    v->files["/proc/partitions"] =
        "major minor  #blocks  name\n\n"
        "   8        0   10485760 sda\n"
        "   8        1     524288 sda1\n"
        "   8        2    8388608 sda2\n"
        "   8        3    1048576 sda3\n"
        "   8       16    2097152 sdb\n"
        "   8       32    1048576 sdc\n"
        "   8       48          0 sdd\n"
        " 253        0    4194304 dm-0\n"
        " 253        1    2097152 dm-1\n";
    v->commands["dmsetup ls --target multipath"] = {true, 0, "No devices found\n"};
    v->commands["dmsetup ls --tree -o notrunc"] = {
        true, 0, "vg-home (253:1)\n `- (8:2)\nvg-root (253:0)\n `- (8:2)\n"};
    v->commands["pvdisplay"] = {true, 0, "  --- Physical volume ---\n  PV Name /dev/sda2\n  VG Name vg\n"};
    v->commands["vgdisplay"] = {true, 0, "  --- Volume group ---\n  VG Name vg\n  Cur LV 2\n"};
    v->commands["lvdisplay"] = {
        true, 0,
        "  --- Logical volume ---\n  LV Path /dev/vg/root\n  LV Name root\n  VG Name vg\n"
        "  Block device 253:0\n\n  --- Logical volume ---\n  LV Path /dev/vg/home\n"
        "  LV Name home\n  VG Name vg\n  Block device 253:1\n"};
    v->commands["file -s %2Fdev%2Fsdc"] = {true, 0, "/dev/sdc: Linux rev 1.0 ext4 filesystem data\n"};
    v->commands["file -s %2Fdev%2Fsdb"] = {true, 0, "/dev/sdb: data\n"};
    v->files["/etc/mtab"] =
        "/dev/mapper/vg-root / ext4 rw 0 0\n/dev/sda1 /boot ext4 rw 0 0\n/dev/mapper/vg-home /home ext4 rw 0 "
        "0\n"
        "proc /proc proc rw 0 0\nsrv:/export /mnt/nfs nfs4 rw 0 0\n";
    v->files["/etc/fstab"] = "/dev/sda3 swap swap defaults 0 0\n/dev/sda1 /boot ext4 defaults 0 2\n";
    for (const char* d : {"/dev/mapper/vg-root", "/dev/sda1", "/dev/mapper/vg-home"}) {
        v->files[d] = "readable";
    }
    v->dirs["/boot"] = {};
    v->dirs["/dev/vg"] = {"root", "home"};
    return v;
}

struct Result {
    std::string path, name, exclusions;
    int index;
};

std::vector<Result> run(std::unique_ptr<vessa::test::ScriptedView> view, unsigned int type,
                        std::list<std::string> args = {}) {
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::move(view));
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    const int count = host->fill(static_cast<Storage::storageType>(type), nullptr, false, args);
    std::vector<Result> out;
    for (Storage* s : host->storage()) {
        out.push_back({s->path(), s->name(), s->exclusionString(), s->index()});
    }
    EXPECT_EQ(count, static_cast<int>(out.size()));
    vessa::hax::clearHostCache();
    return out;
}

void expectItems(const std::vector<Result>& got, const std::vector<Result>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].path, want[i].path) << i;
        EXPECT_EQ(got[i].name, want[i].name) << i;
        EXPECT_EQ(got[i].exclusions, want[i].exclusions) << got[i].path;
        EXPECT_EQ(got[i].index, want[i].index) << got[i].path;
    }
}

TEST(Discovery, BlockDevicesCarryWhatIsBuiltOnThem) {
    // sda: partitioned, holds /boot (A), the volume group (V) whose volume holds / (S), and swap (W).
    expectItems(run(lvmMachine(), 36), {{"/dev/sda", "sda", "A   PS VW ", 0},
                                        {"/dev/sdb", "sdb", "          ", 1},
                                        {"/dev/sdc", "sdc", "    P     ", 2},
                                        {"/dev/sdd", "sdd", "   M      ", 3}});
}

TEST(Discovery, LogicalDevicesReplaceTheirPhysicalVolume) {
    // The volumes take the place of sda2, in the order their devices have in the partition list; the
    // disk itself is never a logical item. Only the volume holding / is the system.
    expectItems(run(lvmMachine(), 26), {{"/dev/sda1", "sda1", "A         ", 0},
                                        {"/dev/vg/root", "vg/root", "     S V  ", 1},
                                        {"/dev/vg/home", "vg/home", "       V  ", 2},
                                        {"/dev/sda3", "sda3", "        W ", 3}});
}

TEST(Discovery, FileSystemsOnceEachAndNotUnderProc) {
    // Roots in partition-list order: the nfs pseudo device comes first; a disk's partitions before
    // the devices built on them. /boot is both mounted and configured: one item. Swap has no
    // directory to query, and /proc is never a target.
    expectItems(run(lvmMachine(), 1), {{"/mnt/nfs/targetfile.dat", "srv:/export", "          ", 0},
                                       {"/boot/targetfile.dat", "sda1", "A         ", 1},
                                       {"//targetfile.dat", "vg-root", "     S V  ", 2},
                                       {"/home/targetfile.dat", "vg-home", "       V  ", 3}});
}

TEST(Discovery, NothingAddedForOtherTypesButEverythingRead) {
    vessa::hax::clearHostCache();
    auto view = lvmMachine();
    vessa::test::ScriptedView* raw = view.get();
    vessa::test::ScopedView scoped(std::move(view));
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    host->storage().push_back(new Storage(Storage::physicalStorage, "x", "/dev/x", 1, 0, "", 0, {}));
    vessa::test::LogCapture log;
    EXPECT_EQ(host->fill(static_cast<Storage::storageType>(64), nullptr, false, {}), 1);
    EXPECT_TRUE(log.hasMessage("CHECK /proc/partions"));
    EXPECT_TRUE(log.hasMessage("Pulled 12 items from /proc/partitions"));
    EXPECT_TRUE(log.hasMessage("Pulled 2 items from \"dmsetup ls --tree\"..."));
    EXPECT_TRUE(log.hasMessage("Pulled 0 links from /dev/disk/by-*"));
    for (const std::string& command : raw->ran) {
        EXPECT_EQ(command.rfind("file ", 0), std::string::npos) << command;  // nothing converted
    }
    EXPECT_NE(std::find(raw->ran.begin(), raw->ran.end(), "lvdisplay"), raw->ran.end());
    vessa::hax::clearHostCache();
}

TEST(Discovery, MultipathDeviceOverTwoPaths) {
    auto v = std::make_unique<vessa::test::ScriptedView>();
    v->files["/proc/partitions"] =
        "major minor #blocks name\n 8 0 1048576 sda\n 8 16 1048576 sdb\n 253 0 1048576 dm-0\n 253 1 524288 "
        "dm-1\n";
    v->commands["dmsetup ls --target multipath"] = {true, 0, "mpatha\t(253, 0)\n"};
    v->commands["dmsetup ls --tree -o notrunc"] = {
        true, 0, "mpatha1 (253:1)\n `-mpatha (253:0)\n    |- (8:0)\n    `- (8:16)\n"};
    v->files["/etc/mtab"] = "/dev/mapper/mpatha1 /data ext4 rw 0 0\n";
    v->files["/dev/mapper/mpatha1"] = "x";
    v->commands["file -s %2Fdev%2Fmapper%2Fmpatha"] = {true, 0, "data\n"};
    auto items = run(std::move(v), 36 | 1);
    // One block item for the multipath device, none for its paths or for the kpartx map above it.
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].path, "/dev/mapper/mpatha");
    EXPECT_EQ(items[0].name, "mapper/mpatha");
    EXPECT_EQ(items[0].exclusions, "    P     ");  // a node rooting a multipath partition map
    EXPECT_EQ(items[1].path, "/data/targetfile.dat");
}

TEST(Discovery, MultipathPairsAreRecordedTwice) {
    vessa::test::ScopedView scoped(std::make_unique<vessa::test::ScriptedView>());
    std::list<vessa::target::lin::ProcPartition*> parts;
    vessa::test::Owned<vessa::target::lin::DmTreeDev> roots;
    vessa::target::lin::DmTreeDev::parseTree("mpatha (253:0)\n |- (8:0)\n `- (8:16)\n",
                                             {{"mpatha", {253, 0}}}, roots);
    std::list<vessa::target::lin::SysBlock*> sb;
    std::list<vessa::target::lin::PhysicalVolume*> pv;
    std::list<vessa::target::lin::LogicalVolume*> lv;
    std::list<vessa::target::lin::VolumeGroup*> vg;
    std::list<vessa::target::lin::FsTableEntry*> fs;
    std::list<vessa::target::lin::MTableEntry*> mt;
    std::list<vessa::target::lin::DiskBy*> db;
    std::list<vessa::target::lin::DeviceLink*> links;
    for (const char* line : {"8 0 1 sda", "8 16 1 sdb", "253 0 1 dm-0"}) {
        parts.push_back(new vessa::target::lin::ProcPartition(line, 0, 1, 2, 3));
        links.push_back(new vessa::target::lin::DeviceLink(parts.back(), sb, roots, pv, lv, vg, fs, mt, db));
    }
    std::list<vessa::target::lin::DeviceLink*> all = links;
    vessa::target::lin::cleanLinks(links);
    ASSERT_EQ(links.size(), 1u);
    EXPECT_EQ(links.front()->name(), "dm-0");
    EXPECT_EQ(links.front()->mpathTargets.size(), 4u);
    EXPECT_EQ(all.front()->parents.size(), 2u);
    for (auto* l : all)
        delete l;
    for (auto* p : parts)
        delete p;
}

TEST(Discovery, InquiryTimeoutOption) {
    const struct {
        std::list<std::string> args;
        unsigned int expected;
    } cases[] = {{{}, 1}, {{"-j2", "-J8"}, 8}, {{"-j"}, 1}, {{"xj9"}, 9}, {{"-J7", "-x"}, 7}};
    for (const auto& c : cases) {
        auto v = std::make_unique<vessa::test::ScriptedView>();
        v->files["/proc/partitions"] = "major minor #blocks name\n 8 0 1 sda\n";
        vessa::test::ScriptedView* raw = v.get();
        vessa::hax::clearHostCache();
        vessa::test::ScopedView scoped(std::move(v));
        std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
        host->fill(Storage::physicalStorage, nullptr, false, c.args);
        ASSERT_FALSE(raw->inquiryTimeouts.empty());
        for (unsigned int t : raw->inquiryTimeouts) {
            EXPECT_EQ(t, c.expected);
        }
    }
    auto v = std::make_unique<vessa::test::ScriptedView>();
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::move(v));
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    EXPECT_THROW(host->fill(Storage::physicalStorage, nullptr, false, {"-jx"}), vessa::Exception);
    vessa::hax::clearHostCache();
}

std::vector<std::pair<int, std::string>> g_progress;
void record(int percent, std::string message) {
    g_progress.emplace_back(percent, message);
}

TEST(Discovery, ProgressNamesEachSourceAndCountsItems) {
    g_progress.clear();
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(lvmMachine());
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    host->fill(static_cast<Storage::storageType>(36), record, false, {});
    std::vector<std::string> messages;
    int last = -1;
    for (const auto& [percent, message] : g_progress) {
        EXPECT_GE(percent, last) << message;  // never goes back
        last = percent;
        messages.push_back(message);
    }
    ASSERT_GE(messages.size(), 10u);
    EXPECT_EQ(messages.front(), "Reading /proc/partitions");
    EXPECT_EQ(messages[8], "Reading /dev/disk/by-*");
    EXPECT_EQ(messages.back(), "Done: 4 items");
    EXPECT_EQ(last, 100);
    vessa::hax::clearHostCache();
}

TEST(Discovery, SelfContradictingDataEndsEveryWalk) {
    // Each of two device-mapper devices claims to be built on the other, and one of them on sda: the
    // relations above sda form a cycle.
    auto v = std::make_unique<vessa::test::ScriptedView>();
    v->files["/proc/partitions"] = "major minor #blocks name\n 8 0 10 sda\n 253 0 10 dm-0\n 253 1 10 dm-1\n";
    v->commands["dmsetup ls --tree -o notrunc"] = {
        true, 0, "a (253:0)\n `- b (253:1)\n     `- (8:0)\nb (253:1)\n `- a (253:0)\n"};
    v->files["/etc/mtab"] = "/dev/mapper/b / ext4 rw 0 0\n";
    v->files["/dev/mapper/b"] = "x";
    vessa::test::LogCapture log;  // the dump walks the links too
    auto items = run(std::move(v), 31);
    ASSERT_FALSE(items.empty());
    for (const Result& r : items) {
        EXPECT_EQ(r.exclusions[5], 'S') << r.path;  // the / mount still reaches every device
    }
}

TEST(Discovery, EverySourceMissingStillCountsEachSource) {
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::string(VESSA_SOURCE_DIR) + "/tests/scenarios/no-sources/root");
    std::unique_ptr<Host> host(Host::named("localhost", false));
    vessa::test::LogCapture log;
    EXPECT_EQ(host->fill(Storage::allStorage, nullptr, false, {}), 0);
    for (const char* line : {"Pulled 3 items from /proc/partitions", "Pulled 0 items from /sys/block/...",
                             "Pulled 0 items from \"dmsetup ls --tree\"...",
                             "Pulled 0 items from pvdisplay...", "Pulled 0 items from lvdisplay...",
                             "Pulled 0 items from vgdisplay...", "Pulled 0 entries from /etc/fstab...",
                             "Pulled 0 entries from /etc/mtab...", "Pulled 0 links from /dev/disk/by-*"}) {
        EXPECT_TRUE(log.hasMessage(line)) << line;
    }
    vessa::hax::clearHostCache();
}

TEST(Discovery, AFailingSourceLeavesTheListUnchanged) {
    auto v = lvmMachine();
    v->commands["lvdisplay"] = {true, 0, "  LV Name root\n  Block device  none\n"};
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::move(v));
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    try {
        host->fill(Storage::allStorage, nullptr, false, {});
        FAIL() << "no exception";
    } catch (const vessa::Exception& e) {
        EXPECT_NE(e.why().find("reading lvdisplay"), std::string::npos) << e.why();
    }
    EXPECT_TRUE(host->storage().empty());
    vessa::hax::clearHostCache();
}

}  // namespace
