#include "platform/Str.h"

#include <gtest/gtest.h>

#include <limits>

namespace str = vessa::util::str;

namespace {

template <class T>
std::string failureOf(const std::string& text) {
    T value{};
    try {
        str::to(value, text);
    } catch (const str::Exception& e) {
        return e.why();
    }
    return "no failure";
}

TEST(Str, ToReadsTrimmedDecimalAndIgnoresTrailingText) {
    struct Case {
        const char* text;
        long long expected;
    };
    const Case cases[] = {{"12", 12}, {"  12\t", 12}, {"12]", 12}, {"-7", -7}, {"0x10", 0}, {"\n33 44", 33}};
    for (const Case& c : cases) {
        long long v = -1;
        str::to(v, c.text);
        EXPECT_EQ(v, c.expected) << c.text;
    }
    unsigned long long big = 0;
    str::to(big, "18446744073709551615");
    EXPECT_EQ(big, std::numeric_limits<unsigned long long>::max());
}

TEST(Str, FailuresQuoteTheUntrimmedText) {
    EXPECT_EQ(failureOf<int>(" x "), "conversion from \" x \" failed");
    EXPECT_EQ(failureOf<int>(""), "conversion from \"\" failed");
    EXPECT_EQ(failureOf<unsigned long long>("]"), "conversion from \"]\" failed");
    EXPECT_EQ(failureOf<int>("99999999999"), "conversion from \"99999999999\" failed");
    EXPECT_EQ(failureOf<unsigned short>("70000"), "conversion from \"70000\" failed");
}

TEST(Str, BoolIsReadAsZeroOrOne) {
    const struct {
        const char* text;
        const char* outcome;
    } cases[] = {{"0", "false"}, {"1", "true"},    {" 1 ", "true"},
                 {"2", "fail"},  {"true", "fail"}, {"-1", "fail"}};
    for (const auto& c : cases) {
        bool b = false;
        std::string outcome;
        try {
            str::to(b, c.text);
            outcome = b ? "true" : "false";
        } catch (const str::Exception& e) {
            outcome = "fail";
            EXPECT_EQ(e.why(), std::string("conversion from \"") + c.text + "\" failed");
        }
        EXPECT_EQ(outcome, c.outcome) << c.text;
    }
}

TEST(Str, ExceptionBelongsToTheFamily) {
    try {
        int v;
        str::to(v, "nope");
        FAIL();
    } catch (const vessa::Exception& e) {
        EXPECT_STREQ(e.typeName(), "vessa::util::str::Exception");
        EXPECT_EQ(e.code(), vessa::sal::err::kConversion);
        EXPECT_EQ(vessa::sal::err::asString(e.code(), e.domain()), "conversion failed");
    }
}

TEST(Str, FromWritesDecimalWithoutPrefix) {
    EXPECT_EQ(str::from(-5), "-5");
    EXPECT_EQ(str::from(4294967295u), "4294967295");
    EXPECT_EQ(str::from(18446744073709551615ull), "18446744073709551615");
    EXPECT_EQ(str::from(255, std::ios_base::hex), "ff");
}

TEST(Str, TrimAndLower) {
    EXPECT_EQ(str::trim(" \t\r\n\v\fa b\f\v\n\r\t "), "a b");
    EXPECT_EQ(str::trim("   "), "");
    EXPECT_EQ(str::toLower("MyHost-01.Example"), "myhost-01.example");
}

}  // namespace
