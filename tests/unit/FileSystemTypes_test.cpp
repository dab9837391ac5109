#include <gtest/gtest.h>

#include "lin/FileSystemTypes.h"
#include "lin/Partition.h"
#include "support/TestSupport.h"

using namespace vessa::target::lin;

namespace {

// The name of a file system from the magic number statfs gives of its mount point, none for a number
// no table knows. (A snapshot replays no statfs type, so no golden log shows these lines.)
TEST(FileSystemTypes, KernelMagicNumbers) {
    EXPECT_EQ(fileSystemName(0x12345), "");
    vessa::test::LogCapture log;
    Partition p("sda1", 1, "/", nullptr, "");
    p.setFileSystem(0x9fa0);
    EXPECT_EQ(p.fileSystem(), "PROC");
    EXPECT_TRUE(log.hasMessage("Found FS Type: \"PROC\""));
}

}  // namespace
