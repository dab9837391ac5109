// Discovery readers against this machine's real loop devices and mounts (LVM: LvmReaders_test). Root only;
// everything made here is undone by the fixtures' destructors, also when a test fails.
#include <gtest/gtest.h>

#include <sys/mount.h>

#include "lin/MTableEntry.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
#include "support/LoopDevice.h"
#include "support/Owned.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using namespace vessa::target::lin;
using vessa::test::LoopDevice;

namespace {

template <class T>
T* named(const std::list<T*>& list, const std::string& name) {
    for (T* t : list) {
        if (t->name() == name) {
            return t;
        }
    }
    return nullptr;
}

class LiveReaders : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!vessa::test::runningAsRoot()) {
            GTEST_SKIP() << "needs root for loop devices";
        }
        vessa::hax::clearHostCache();
    }
    void TearDown() override { vessa::hax::clearHostCache(); }
};

TEST_F(LiveReaders, LoopDevicesAppearWithTheirSizes) {
    LoopDevice loop(32 * 1024 * 1024);
    ASSERT_TRUE(loop.ok());
    vessa::test::Owned<ProcPartition> parts;
    ProcPartition::readProcPartitions(parts);
    ProcPartition* p = named(parts, loop.name());
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->blocks(), 32768);
    EXPECT_EQ(p->major(), 7);

    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
    vessa::test::Owned<SysBlock> disks;
    SysBlock::readSysFs(disks, parts, host.get());
    SysBlock* s = named(disks, loop.name());
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(s->size(), 65536u);  // 512-byte sectors
    EXPECT_EQ(s->major(), 7);
}

TEST_F(LiveReaders, MountedExtFourIsAMountTableEntry) {
    LoopDevice loop(32 * 1024 * 1024);
    ASSERT_TRUE(loop.ok());
    ASSERT_EQ(vessa::test::run("mkfs.ext4 -q -F " + loop.device()), 0);
    vessa::test::TempDir mountPoint;
    ASSERT_EQ(::mount(loop.device().c_str(), mountPoint.path().c_str(), "ext4", 0, nullptr), 0);
    struct Unmount {
        std::string dir;
        ~Unmount() { ::umount2(dir.c_str(), MNT_DETACH); }
    } unmount{mountPoint.path()};

    vessa::test::Owned<MTableEntry> entries;
    ASSERT_TRUE(MTableEntry::readMTab(entries, nullptr));
    MTableEntry* found = nullptr;
    for (MTableEntry* e : entries) {
        if (e->mountPoint() == mountPoint.path()) {
            found = e;
        }
    }
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->deviceName(), loop.device());
    EXPECT_EQ(found->fileSystemType(), "ext4");
}

}  // namespace
