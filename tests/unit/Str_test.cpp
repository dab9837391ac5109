#include "platform/Str.h"

#include <gtest/gtest.h>

namespace str = vessa::util::str;

namespace {

// The value read from `text` in decimal, or the reason of the failure (which must leave the value alone).
template <class T>
std::string read(const std::string& text) {
    T value = static_cast<T>(9);
    try {
        str::to(value, text);
    } catch (const str::Exception& e) {
        return e.why() + (value == static_cast<T>(9) ? "" : " (value changed)");
    }
    return std::to_string(value);
}

// Text after the value is ignored; a bool is a number, 0 or 1.
TEST(Str, ToReadsTrimmedDecimalOrFailsQuotingTheUntrimmedText) {
    const struct {
        std::string (*read)(const std::string&);
        const char* text;
        const char* outcome;
    } cases[] = {{read<long long>, "12", "12"},
                 {read<long long>, "  12\t", "12"},
                 {read<long long>, "12]", "12"},
                 {read<long long>, "-7", "-7"},
                 {read<long long>, "0x10", "0"},
                 {read<long long>, "\n33 44", "33"},
                 {read<unsigned long long>, "18446744073709551615", "18446744073709551615"},
                 {read<int>, " x ", "conversion from \" x \" failed"},
                 {read<int>, "", "conversion from \"\" failed"},
                 {read<unsigned long long>, "]", "conversion from \"]\" failed"},
                 {read<int>, "99999999999", "conversion from \"99999999999\" failed"},
                 {read<unsigned short>, "70000", "conversion from \"70000\" failed"},
                 {read<bool>, "0", "0"},
                 {read<bool>, " 1 ", "1"},
                 {read<bool>, "2", "conversion from \"2\" failed"},
                 {read<bool>, "true", "conversion from \"true\" failed"},
                 {read<bool>, "-1", "conversion from \"-1\" failed"}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.read(c.text), c.outcome) << c.text;
    }
}

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
