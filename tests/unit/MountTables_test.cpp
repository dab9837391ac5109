#include <gtest/gtest.h>

#include "lin/FileSystemTypes.h"
#include "lin/MTableEntry.h"
#include "lin/Partition.h"
#include "support/Owned.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using namespace vessa::target::lin;

namespace {

// (What the tables keep, and the exclusions of their mount points, are the golden snapshots of
// tests/golden/mount-tables and the records of tests/data/mounts.)
TEST(MTableEntry, NoTableAtAll) {
    vessa::test::ScopedView scoped(std::make_unique<vessa::test::ScriptedView>());
    vessa::test::Owned<MTableEntry> list;
    EXPECT_FALSE(MTableEntry::readMTab(list, nullptr));
}

TEST(FileSystemTypes, KernelMagicNumbers) {
    EXPECT_EQ(fileSystemName(0x12345), "");
    vessa::test::LogCapture log;
    Partition p("sda1", 1, "/", nullptr, "");
    p.setFileSystem(0x9fa0);
    EXPECT_EQ(p.fileSystem(), "PROC");
    EXPECT_TRUE(log.hasMessage("Found FS Type: \"PROC\""));
}

}  // namespace
