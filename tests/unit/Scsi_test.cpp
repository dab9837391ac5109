#include "platform/Scsi.h"

#include <gtest/gtest.h>

namespace scsi = vessa::sal::scsi;

namespace {

std::vector<std::uint8_t> answer(const std::string& vendor, const std::string& product,
                                 const std::string& rev) {
    std::vector<std::uint8_t> a(96, 0);  // byte 0: a direct-access device
    std::copy(vendor.begin(), vendor.end(), a.begin() + 8);
    std::copy(product.begin(), product.end(), a.begin() + 16);
    std::copy(rev.begin(), rev.end(), a.begin() + 32);
    return a;
}

// The command blocks as the SCSI commands define them, written out here apart from the code that makes
// them: a wrong byte shows only on a real SCSI device, which no loop device of the suite is.
TEST(Scsi, CommandBlocksAndAnswers) {
    EXPECT_EQ(scsi::inquiryCommand(), (std::array<std::uint8_t, 6>{0x12, 0, 0, 0, 0x60, 0}));
    EXPECT_EQ(scsi::readCapacity10Command()[0], 0x25);
    const auto rc16 = scsi::readCapacity16Command();
    EXPECT_EQ(std::vector<std::uint8_t>({rc16[0], rc16[1], rc16[13]}),
              std::vector<std::uint8_t>({0x9E, 0x10, 32}));
    const std::vector<std::uint8_t> rc10Answer = {0x00, 0x3f, 0xff, 0xff, 0x00, 0x00, 0x02, 0x00};
    EXPECT_EQ(scsi::readCapacity10BlockSize(rc10Answer), 512u);
    std::vector<std::uint8_t> rc16Answer(32, 0);
    rc16Answer[10] = 0x10;
    EXPECT_EQ(scsi::readCapacity16BlockSize(rc16Answer), 4096u);
    EXPECT_EQ(scsi::readCapacity10BlockSize({0, 0, 0, 0, 0x02}), 0u);  // short answers
    EXPECT_EQ(scsi::readCapacity16BlockSize(rc10Answer), 0u);
    // The SCSI_IOCTL_GET_IDLUN word: host in the top byte.
    EXPECT_EQ(scsi::idLunAddress(0x02000301u), "2:0:1:3");
    EXPECT_EQ(scsi::idLunAddress(0xff7f0a05u), "255:127:5:10");
}

TEST(Scsi, InquiryTextIsAlwaysTwentyEightUntrimmedCharacters) {
    const struct {
        std::vector<std::uint8_t> data;
        std::string text;
    } cases[] = {
        {answer(std::string("AB\0D    ", 8), "X", ""), "AB D    X                   "},
        {answer("\x7f\x01\xff", "", ""), std::string(28, ' ')},
        {std::vector<std::uint8_t>(96, 0), std::string(28, ' ')},
        {{}, std::string(28, ' ')},
        {std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 'I', 'B', 'M'}, "IBM" + std::string(25, ' ')},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(scsi::inquiryText(c.data), c.text);
    }
}

}  // namespace
