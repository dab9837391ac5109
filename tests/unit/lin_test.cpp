#include "lin/lin.h"

#include <gtest/gtest.h>

#include "platform/Exception.h"
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
        "major minor  #blocks  name\n\n   8 0 10485760 sda\n   8 1 524288 sda1\n   8 2 8388608 sda2\n"
        "   8 3 1048576 sda3\n   8 16 2097152 sdb\n   8 32 1048576 sdc\n   8 48 0 sdd\n 253 0 4194304 dm-0\n"
        " 253 1 2097152 dm-1\n";
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

// Runs `look` on the local host of a run through `view`, with a fresh host table before and after.
template <class F>
void onHost(std::unique_ptr<vessa::sal::sys::View> view, F look) {
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::move(view));
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    look(*host);
    host.reset();
    vessa::hax::clearHostCache();
}

// The items of `type` as "path name [exclusions] index"; fill's count must be theirs.
std::vector<std::string> run(std::unique_ptr<vessa::sal::sys::View> view, unsigned int type) {
    std::vector<std::string> out;
    onHost(std::move(view), [&](Host& host) {
        const int count = host.fill(static_cast<Storage::storageType>(type), nullptr, false, {});
        for (Storage* s : host.storage()) {
            out.push_back(s->path() + " " + s->name() + " [" + s->exclusionString() + "] " +
                          std::to_string(s->index()));
        }
        EXPECT_EQ(count, static_cast<int>(out.size()));
    });
    return out;
}

TEST(Discovery, ItemsOfEachType) {
    const struct {
        unsigned int type;
        std::vector<std::string> items;
    } cases[] = {
        // sda: partitioned, holds /boot (A), the volume group (V) whose volume holds / (S), and swap (W).
        {36,
         {"/dev/sda sda [A   PS VW ] 0", "/dev/sdb sdb [          ] 1", "/dev/sdc sdc [    P     ] 2",
          "/dev/sdd sdd [   M      ] 3"}},
        // The volumes take the place of sda2, in the order their devices have in the partition list; the
        // disk itself is never a logical item. Only the volume holding / is the system.
        {26,
         {"/dev/sda1 sda1 [A         ] 0", "/dev/vg/root vg/root [     S V  ] 1",
          "/dev/vg/home vg/home [       V  ] 2", "/dev/sda3 sda3 [        W ] 3"}},
        // Roots in partition-list order: the nfs pseudo device first; a disk's partitions before the
        // devices built on them. /boot is both mounted and configured: one item. Swap has no directory
        // to query, and /proc is never a target.
        {1,
         {"/mnt/nfs/targetfile.dat srv:/export [          ] 0", "/boot/targetfile.dat sda1 [A         ] 1",
          "//targetfile.dat vg-root [     S V  ] 2", "/home/targetfile.dat vg-home [       V  ] 3"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(run(lvmMachine(), c.type), c.items) << c.type;
    }
}

TEST(Discovery, NothingAddedForOtherTypesButEverythingRead) {
    auto view = lvmMachine();
    vessa::test::ScriptedView* raw = view.get();
    onHost(std::move(view), [&](Host& host) {
        host.storage().push_back(new Storage(Storage::physicalStorage, "x", "/dev/x", 1, 0, "", 0, {}));
        vessa::test::LogCapture log;
        EXPECT_EQ(host.fill(static_cast<Storage::storageType>(64), nullptr, false, {}), 1);
        for (const char* line :
             {"CHECK /proc/partions", "Pulled 12 items from /proc/partitions",
              "Pulled 2 items from \"dmsetup ls --tree\"...", "Pulled 0 links from /dev/disk/by-*"}) {
            EXPECT_TRUE(log.hasMessage(line)) << line;
        }
        for (const std::string& command : raw->ran) {
            EXPECT_EQ(command.rfind("file ", 0), std::string::npos) << command;  // nothing converted
        }
        EXPECT_NE(std::find(raw->ran.begin(), raw->ran.end(), "lvdisplay"), raw->ran.end());
    });
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
    // One block item for the multipath device (P: it roots a partition map), none for its paths or for
    // the kpartx map above it.
    EXPECT_EQ(run(std::move(v), 36 | 1),
              (std::vector<std::string>{"/dev/mapper/mpatha mapper/mpatha [    P     ] 0",
                                        "/data/targetfile.dat mpatha1 [          ] 1"}));
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
        onHost(std::move(v), [&](Host& host) {
            host.fill(Storage::physicalStorage, nullptr, false, c.args);
            ASSERT_FALSE(raw->inquiryTimeouts.empty());
            EXPECT_EQ(raw->inquiryTimeouts,
                      std::vector<unsigned int>(raw->inquiryTimeouts.size(), c.expected));
        });
    }
    onHost(std::make_unique<vessa::test::ScriptedView>(), [](Host& host) {
        EXPECT_THROW(host.fill(Storage::physicalStorage, nullptr, false, {"-jx"}), vessa::Exception);
    });
}

std::vector<std::pair<int, std::string>> g_progress;
void record(int percent, std::string message) {
    g_progress.emplace_back(percent, message);
}

TEST(Discovery, ProgressNamesEachSourceAndCountsItems) {
    g_progress.clear();
    onHost(lvmMachine(),
           [](Host& host) { host.fill(static_cast<Storage::storageType>(36), record, false, {}); });
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
    for (const std::string& item : items) {
        EXPECT_EQ(item.substr(item.find('[') + 6, 1), "S") << item;  // the / mount still reaches every device
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
    host.reset();
    vessa::hax::clearHostCache();
}

// A source that cannot be understood stops its reader only: the run keeps what the reader read before,
// goes on with the others, and names the source afterwards.
TEST(Discovery, AFailingSourceStopsItsReaderNotTheRun) {
    using View = vessa::test::ScriptedView;
    const std::string disks = "/dev/sda [A   PS VW ] /dev/sdb /dev/sdc /dev/sdd ";
    const struct {
        const char* source;
        void (*spoil)(View&);
        std::string items;  // the block devices listed, sda with its exclusions
    } cases[] = {
        {"lvdisplay",
         [](View& v) {
             v.commands["lvdisplay"] = {true, 0, "  LV Name root\n  VG Name vg\n  Block device  none\n"};
         },
         disks},
        // vg-root is lost, and with it /.
        {"dmsetup",
         [](View& v) {
             v.commands["dmsetup ls --tree -o notrunc"] = {true, 0,
                                                           "vg-home (253:1)\n `- (8:2)\nvg-root (x:0)\n"};
         },
         "/dev/sda [A   P  VW ] /dev/sdb /dev/sdc /dev/sdd /dev/dm-0 "},
        {"/sys/block",
         [](View& v) {
             v.dirs["/sys/block"] = {"sda", "sdb"};
             v.files["/sys/block/sdb/dev"] = "8:sixteen\n";
         },
         disks},
        // The partition list's reader keeps its failure to itself (it logs its own line), and so
        // does not reach the run's catch; it still counts as a source that failed.
        {"/proc/partitions", [](View& v) { v.files["/proc/partitions"] += "   8   x   1024 sde\n"; }, disks},
    };
    for (const auto& c : cases) {
        auto v = lvmMachine();
        c.spoil(*v);
        vessa::test::LogCapture log;
        onHost(std::move(v), [&](Host& host) {
            host.fill(Storage::discoveredBlockDevice, nullptr, false, {});
            std::string items;
            for (const Storage* s : host.storage()) {
                items += s->path() + (items.empty() ? " [" + s->exclusionString() + "] " : " ");
            }
            EXPECT_EQ(items, c.items) << c.source;
            const auto& failed = host.discoveryReport().failedSources;
            ASSERT_EQ(failed.size(), 1u) << c.source;
            EXPECT_EQ(failed[0].source, c.source);
            EXPECT_FALSE(host.discoveryReport().complete());
        });
        EXPECT_NE(log.text().find(c.source == std::string("/proc/partitions")
                                      ? "Failed to finish reading...like a boss..."
                                      : "vessa::util::str::Exception because conversion from"),
                  std::string::npos)
            << c.source;
    }
}

}  // namespace
