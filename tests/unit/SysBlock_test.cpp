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

// A small /sys/block: a SCSI disk with one partition held by a device-mapper device, that device with
// its slave, a controller disk, and an empty disk whose size comes from its node.
class SysBlockTest : public ::testing::Test {
  protected:
    void SetUp() override {
        root.write("sys/block/sda/dev", "8:0\n");
        root.write("sys/block/sda/size", "1953525168\n");
        root.write("sys/block/sda/removable", "0\n");
        root.write("sys/block/sda/range", "16\n");
        root.write("sys/block/sda/device/model", "WDC WD10EZEX-08W\n");
        root.write("sys/block/sda/device/vendor", "ATA     \n");
        root.write("sys/block/sda/device/rev", "1A01\n");
        root.write("sys/block/sda/device/scsi_level", "6\n");
        root.write("sys/block/sda/queue/rotational", "1\n");
        root.write("sys/block/sda/sda1/dev", "8:1\n");
        root.write("sys/block/sda/sda1/size", "2048\n");
        std::filesystem::create_directories(root.path() + "/sys/block/sda/sda1/holders/dm-0");
        std::filesystem::create_directories(root.path() + "/sys/block/sda/holders");
        root.write("sys/block/dm-0/dev", "253:0\n");
        root.write("sys/block/dm-0/size", "2048\n");
        std::filesystem::create_directories(root.path() + "/sys/block/dm-0/slaves/sda1");
        root.write("sys/block/cciss!c0d0/dev", "104:0\n");
        root.write("sys/block/cciss!c0d0/size", "100\n");
        root.write("sys/block/sdz/dev", "65:144\n");
        root.write("sys/block/sdz/size", "0\n");
        root.write("dev/sdz", "x");
        root.write(".vessa/ioctl/sdz.size", "1048576\n");
        root.write(".vessa/ioctl/sdz.block_size", "4096\n");
        root.write("etc/hostname", "snap\n");
        vessa::hax::clearHostCache();
    }
    void TearDown() override { vessa::hax::clearHostCache(); }
    vessa::test::TempDir root;
};

TEST_F(SysBlockTest, ReadsDisksOfThePartitionListWithTheirRelations) {
    vessa::test::ScopedView scoped(root.path());
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    vessa::test::Owned<ProcPartition> parts;
    for (const char* line :
         {"8 0 1 sda", "8 1 1 sda1", "253 0 1 dm-0", "104 0 1 cciss/c0d0", "65 144 1 sdz"}) {
        parts.push_back(new ProcPartition(line, 0, 1, 2, 3));
    }
    parts.push_front(new ProcPartition(".nfs.", -1, -1, -1, -1));
    vessa::test::Owned<SysBlock> disks;
    ASSERT_TRUE(SysBlock::readSysFs(disks, parts, host.get()));
    std::vector<std::string> names;
    for (SysBlock* s : disks) {
        names.push_back(s->name());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"sda", "dm-0", "cciss!c0d0", "sdz"}));

    SysBlock* sda = disks.front();
    EXPECT_EQ(sda->major(), 8);
    EXPECT_EQ(sda->size(), 1953525168u);
    EXPECT_FALSE(sda->removable());
    EXPECT_EQ(sda->range(), 16);
    EXPECT_EQ(sda->vendor(), "ATA     ");     // the first line as it is
    ASSERT_EQ(sda->partitions().size(), 1u);  // "queue" and "device" are not partitions
    SysBlock* sda1 = sda->partitions().front();
    EXPECT_EQ(sda1->name(), "sda1");
    EXPECT_EQ(sda1->minor(), 1);
    EXPECT_EQ(sda1->parents().front(), sda);
    ASSERT_EQ(sda1->holders().size(), 1u);
    EXPECT_EQ(sda1->holders().front()->name(), "dm-0");
    EXPECT_TRUE(sda->holders().empty());

    SysBlock* dm = *std::next(disks.begin());
    ASSERT_EQ(dm->slaves().size(), 1u);
    EXPECT_EQ(dm->slaves().front()->name(), "sda1");
    EXPECT_EQ(dm->slaves().front()->parents().front(), dm);
    EXPECT_TRUE(dm->removable());  // no removable file: counts as removable
    EXPECT_EQ(dm->range(), -1);

    EXPECT_EQ(disks.back()->size(), 256u);  // 1048576 bytes in blocks of 4096
    Storage::exclusions ex = 0;
    sda->getExclusions(ex);
    EXPECT_EQ(ex, 0u);
    std::map<std::string, vessa::target::Property> props;
    sda->addProperties("", props);
    EXPECT_EQ(props.size(), 10u);
    EXPECT_EQ(props.at("SysBlockMinorNumber").description(),
              "Minor Number as found in /sys/block/<dev>/dev file");
    EXPECT_EQ(props.at("SysBlockModel").category(), "/sys/block/sda");
}

TEST_F(SysBlockTest, ZeroSizeIsEmpty) {
    root.write("sys/block/sdy/size", "0\n");
    vessa::test::ScopedView scoped(root.path());
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    SysBlock sdy("/sys/block/sdy", host.get());
    EXPECT_EQ(sdy.size(), 0u);  // no node to fall back on
    Storage::exclusions ex = 0;
    sdy.getExclusions(ex);
    EXPECT_EQ(ex, Storage::kEmpty);
}

}  // namespace
