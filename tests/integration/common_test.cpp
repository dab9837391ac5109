#include "lin/common.h"

#include <gtest/gtest.h>

#include "platform/Stat.h"
#include "support/LoopDevice.h"

namespace {

TEST(CommonLive, LoopDeviceIsNoScsiDevice) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices";
    }
    vessa::test::LoopDevice loop(8 * 1024 * 1024);
    ASSERT_TRUE(loop.ok());

    std::string inquiry = "x";
    vessa::target::lin::getInquiry(loop.name(), inquiry, 1);
    EXPECT_EQ(inquiry, std::string(28, ' '));
    std::string address;
    vessa::target::lin::getScsiAddress(loop.device(), address);
    EXPECT_EQ(address, "None");

    vessa::sal::fs::Stat st(loop.device());
    EXPECT_TRUE(st.exists());
    EXPECT_TRUE(st.isBlockDevice());
    EXPECT_EQ(st.size(), 8 * 1024 * 1024);
    EXPECT_GT(st.blockSize(), 0);
    EXPECT_EQ(st.blockSizeByRC(), 0u);
    EXPECT_EQ(st.blockSizeByRC16(), 0u);

    std::string out;
    EXPECT_EQ(vessa::target::lin::quickRun("blockdev", {"--getsize64", loop.device()}, out), 0);
    EXPECT_EQ(out, "8388608\n");
}

}  // namespace
