#include "platform/Str.h"

#include <gtest/gtest.h>

namespace str = vessa::util::str;

namespace {

// (How text reads as a number is the records of tests/data/library/handmade-conversions.)
TEST(Str, FromTrimAndLower) {
    EXPECT_EQ(str::from(-5), "-5");
    EXPECT_EQ(str::from(4294967295u), "4294967295");
    EXPECT_EQ(str::from(18446744073709551615ull), "18446744073709551615");
    EXPECT_EQ(str::from(255, std::ios_base::hex), "ff");
    EXPECT_EQ(str::trim(" \t\r\n\v\fa b\f\v\n\r\t "), "a b");
    EXPECT_EQ(str::trim("   "), "");
    EXPECT_EQ(str::toLower("MyHost-01.Example"), "myhost-01.example");
}

}  // namespace
