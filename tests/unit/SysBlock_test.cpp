#include "lin/SysBlock.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "lin/ProcPartition.h"
#include "support/Owned.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;
using vessa::target::lin::ProcPartition;
using vessa::target::lin::SysBlock;

namespace {

// "name major:minor size range [removable] 'vendor'", then the partitions (described in full), holders
// and slaves; a partition and a slave must name this device as their parent.
std::string describe(const SysBlock* s) {
    std::string out = s->name() + " " + std::to_string(s->major()) + ":" + std::to_string(s->minor()) + " " +
                      std::to_string(s->size()) + " " + std::to_string(s->range()) +
                      (s->removable() ? " removable '" : " '") + s->vendor() + "'";
    for (const SysBlock* p : s->partitions()) {
        EXPECT_EQ(p->parents().front(), s);
        out += " [partition " + describe(p) + "]";
    }
    for (const SysBlock* h : s->holders()) {
        out += " [holder " + h->name() + "]";
    }
    for (const SysBlock* l : s->slaves()) {
        EXPECT_EQ(l->parents().front(), s);
        out += " [slave " + l->name() + "]";
    }
    return out;
}

// A small /sys/block (a controller disk, "/" written "!", is the cciss scenario's): a SCSI disk with one
// partition held by a device-mapper device, that device with its slave, an empty disk whose size comes from
// its node, and one with neither size nor node.
TEST(SysBlock, ReadsDisksOfThePartitionListWithTheirRelations) {
    vessa::test::TempDir root;
    const std::pair<const char*, const char*> files[] = {
        {"sys/block/sda/dev", "8:0\n"},
        {"sys/block/sda/size", "1953525168\n"},
        {"sys/block/sda/removable", "0\n"},
        {"sys/block/sda/range", "16\n"},
        {"sys/block/sda/device/vendor", "ATA     \n"},
        {"sys/block/sda/queue/rotational", "1\n"},
        {"sys/block/sda/sda1/dev", "8:1\n"},
        {"sys/block/sda/sda1/size", "2048\n"},
        {"sys/block/dm-0/dev", "253:0\n"},
        {"sys/block/dm-0/size", "2048\n"},
        {"sys/block/sdz/dev", "65:144\n"},
        {"sys/block/sdz/size", "0\n"},
        {"dev/sdz", "x"},
        {".vessa/ioctl/sdz.size", "1048576\n"},
        {".vessa/ioctl/sdz.block_size", "4096\n"},
        {"sys/block/sdy/size", "0\n"},
        {"etc/hostname", "snap\n"},
    };
    for (const auto& [path, content] : files) {
        root.write(path, content);
    }
    for (const char* dir :
         {"sys/block/sda/sda1/holders/dm-0", "sys/block/sda/holders", "sys/block/dm-0/slaves/sda1"}) {
        std::filesystem::create_directories(root.path() + "/" + dir);
    }
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(root.path());
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    vessa::test::Owned<ProcPartition> parts;
    for (const char* line : {"8 0 1 sda", "8 1 1 sda1", "253 0 1 dm-0", "65 144 1 sdz"}) {
        parts.push_back(new ProcPartition(line, 0, 1, 2, 3));
    }
    parts.push_front(new ProcPartition(".nfs.", -1, -1, -1, -1));
    vessa::test::Owned<SysBlock> disks;
    SysBlock::readSysFs(disks, parts, host.get());
    std::vector<std::string> described;
    for (SysBlock* s : disks) {
        described.push_back(describe(s));
    }
    // The vendor's first line as it is; "queue" and "device" are not partitions; no removable file counts
    // as removable; 1048576 bytes in blocks of 4096 are 256.
    EXPECT_EQ(described,
              (std::vector<std::string>{
                  "sda 8:0 1953525168 16 'ATA     ' [partition sda1 8:1 2048 -1 removable '' [holder dm-0]]",
                  "dm-0 253:0 2048 -1 removable '' [slave sda1]", "sdz 65:144 256 -1 removable ''"}));
    Storage::exclusions ex = 0;
    disks.front()->getExclusions(ex);
    EXPECT_EQ(ex, 0u);
    SysBlock sdy("/sys/block/sdy", host.get());
    sdy.getExclusions(ex);
    EXPECT_EQ(ex, Storage::kEmpty);
}

}  // namespace
