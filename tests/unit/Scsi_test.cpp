#include "platform/Scsi.h"

#include <gtest/gtest.h>

namespace scsi = vessa::sal::scsi;

namespace {

std::vector<std::uint8_t> answer(const std::string& vendor, const std::string& product,
                                 const std::string& rev) {
    std::vector<std::uint8_t> a(96, 0);
    a[0] = 0x00;  // direct-access device
    std::copy(vendor.begin(), vendor.end(), a.begin() + 8);
    std::copy(product.begin(), product.end(), a.begin() + 16);
    std::copy(rev.begin(), rev.end(), a.begin() + 32);
    return a;
}

TEST(Scsi, CommandBlocks) {
    EXPECT_EQ(scsi::inquiryCommand(), (std::array<std::uint8_t, 6>{0x12, 0, 0, 0, 0x60, 0}));
    EXPECT_EQ(scsi::readCapacity10Command()[0], 0x25);
    const auto rc16 = scsi::readCapacity16Command();
    EXPECT_EQ(rc16[0], 0x9E);
    EXPECT_EQ(rc16[1], 0x10);
    EXPECT_EQ(rc16[13], 32);
}

TEST(Scsi, InquiryTextIsAlwaysTwentyEightUntrimmedCharacters) {
    const struct {
        std::vector<std::uint8_t> data;
        std::string text;
    } cases[] = {
        {answer("ATA     ", "WDC WD10EZEX-08W", "1A01"), "ATA     WDC WD10EZEX-08W1A01"},
        {answer("HP      ", "HSV210          ", "6220"), "HP      HSV210          6220"},
        {answer(std::string("AB\0D    ", 8), "X", ""), "AB D    X                   "},
        {answer("\x7f\x01\xff", "", ""), std::string(28, ' ')},
        {std::vector<std::uint8_t>(96, 0), std::string(28, ' ')},
        {{}, std::string(28, ' ')},
        {std::vector<std::uint8_t>{0, 0, 0, 0, 0, 0, 0, 0, 'I', 'B', 'M'}, "IBM" + std::string(25, ' ')},
    };
    for (const auto& c : cases) {
        const std::string text = scsi::inquiryText(c.data);
        EXPECT_EQ(text.size(), 28u);
        EXPECT_EQ(text, c.text);
    }
}

TEST(Scsi, ReadCapacityBlockSizes) {
    std::vector<std::uint8_t> rc10 = {0x00, 0x3f, 0xff, 0xff, 0x00, 0x00, 0x02, 0x00};
    EXPECT_EQ(scsi::readCapacity10BlockSize(rc10), 512u);
    std::vector<std::uint8_t> rc16(32, 0);
    rc16[8] = 0x00;
    rc16[9] = 0x00;
    rc16[10] = 0x10;
    rc16[11] = 0x00;
    EXPECT_EQ(scsi::readCapacity16BlockSize(rc16), 4096u);
    EXPECT_EQ(scsi::readCapacity10BlockSize({0, 0, 0, 0, 0x02}), 0u);  // short answer
    EXPECT_EQ(scsi::readCapacity16BlockSize(rc10), 0u);
}

TEST(Scsi, IdLunWordUnpacksHostFromTheTopByte) {
    EXPECT_EQ(scsi::idLunAddress(0x02000301u), "2:0:1:3");
    EXPECT_EQ(scsi::idLunAddress(0xff7f0a05u), "255:127:5:10");
    EXPECT_EQ(scsi::idLunAddress(0), "0:0:0:0");
}

}  // namespace
