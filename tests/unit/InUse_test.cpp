#include "lin/InUse.h"

#include <gtest/gtest.h>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;
using namespace vessa::target::lin;

namespace {

// Lines without the table's shape (cut short, numbers that are none) are left out; "\040" is a blank.
TEST(InUse, TablesAsTheKernelWritesThem) {
    const std::string info =
        "26 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n37 1 0:22 / /dev/shm rw - tmpfs tmpfs rw\n"
        "36 35 98:0 /mnt1 /mnt/with\\040blank rw,noatime master:1 shared:7 - ext3 /dev/root rw\n"
        "truncated 1 8:1 / /x\n38 1 x:1 / /bad rw - ext4 /dev/sdz rw\n";
    std::string mounts;
    for (const MountInfoLine& m : parseMountInfo(info)) {
        mounts += std::to_string(m.major) + ":" + std::to_string(m.minor) + " " + m.mountPoint + " " +
                  m.fileSystemType + " " + m.source + "\n";
    }
    EXPECT_EQ(mounts,
              "254:0 / ext4 /dev/vda\n0:22 /dev/shm tmpfs tmpfs\n98:0 /mnt/with blank ext3 /dev/root\n");
    std::string swaps;
    for (const SwapLine& s :
         parseSwaps("Filename\t\t\t\tType\t\tSize\t\tUsed\t\tPriority\n/dev/sda2          "
                    "partition\t1048572\t\t0\t\t-2\n/swap\\040file file 1024 0 -3\nlonely\n")) {
        swaps += s.path + " " + s.type + "\n";
    }
    EXPECT_EQ(swaps, "/dev/sda2 partition\n/swap file file\n");
}

// sda: sda1 mounted, sda3 held by dm-0 (known to /sys/block only: there is no dmsetup), dm-0 mounted; sdb
// blank; sdc holds / and a swap file. (Active swap partitions and busy devices are the in-use scenario's.)
std::unique_ptr<vessa::test::ScriptedView> busyMachine() {
    auto v = std::make_unique<vessa::test::ScriptedView>();
    v->files["/proc/partitions"] =
        "major minor  #blocks  name\n\n   8  0 1048576 sda\n   8  1 1024 sda1\n   8  3 1024 sda3\n"
        "   8 16 1048576 sdb\n   8 32 1048576 sdc\n 253  0 1024 dm-0\n";
    v->dirs["/sys/block"] = {"dm-0", "sda", "sdb", "sdc"};
    v->dirs["/sys/block/sda"] = {"dev", "sda1", "sda3"};
    v->dirs["/sys/block/sda/sda3"] = {"dev", "holders"};
    v->dirs["/sys/block/sda/sda3/holders"] = {"dm-0"};
    v->files["/proc/self/mountinfo"] =
        "29 1 8:32 / / rw - ext4 /dev/sdc rw\n30 29 8:1 / /home rw - ext4 /dev/sda1 rw\n"
        "31 29 253:0 / /srv rw - xfs /dev/mapper/vg-srv rw\n";
    v->files["/proc/swaps"] = "Filename Type Size Used Priority\n/swapfile file 1 0 -3\n";
    v->exclusive = {{"sdb", vessa::sal::sys::ExclusiveOpen::Free},
                    {"sda", vessa::sal::sys::ExclusiveOpen::Busy},  // explained by its partitions
                    {"sdc", vessa::sal::sys::ExclusiveOpen::Busy}};
    return v;
}

TEST(InUse, ReasonsOfEachDeviceAndOnlyWhenAsked) {
    const std::map<std::string, std::string> expected = {
        {"/dev/sda",
         "through sda1: mounted at /home; through sda3: held by dm-0; through dm-0: mounted at /srv"},
        {"/dev/sdb", ""},
        {"/dev/sdc", "mounted at /; holds active swap file /swapfile"},
        {"/dev/dm-0", "mounted at /srv"}};
    for (bool asked : {true, false}) {
        vessa::hax::clearHostCache();
        vessa::test::ScopedView scoped(busyMachine());
        std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
        host->fill(Storage::discoveredBlockDevice, nullptr, false,
                   asked ? std::list<std::string>{"--in-use"} : std::list<std::string>{});
        std::map<std::string, std::string> got;  // every item has the property when asked, none else
        for (Storage* s : host->storage()) {
            auto p = s->properties().find("inUse");
            if (p != s->properties().end()) {
                EXPECT_EQ(p->second.category(), "General");
                got[s->path()] = p->second.value();
            }
        }
        EXPECT_EQ(got, (asked ? expected : std::map<std::string, std::string>()));
        host.reset();
        vessa::hax::clearHostCache();
    }
}

}  // namespace
