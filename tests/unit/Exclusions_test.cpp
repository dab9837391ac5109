#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "target/Storage.h"

using vessa::target::Storage;

namespace {

Storage withExclusions(Storage::exclusions ex) {
    return Storage(Storage::discoveredBlockDevice, "d", "/dev/d", 4096, 0, "", ex, {});
}

// The string is in letter order A G I M P S U V W Z, which is not the bit order.
TEST(Exclusions, LetterOrder) {
    const std::pair<Storage::exclusions, const char*> cases[] = {
        {0x3FF, "AGIMPSUVWZ"}, {0x004, "  I       "}, {0x002, "         Z"}, {0x040, "        W "}};
    for (const auto& [set, string] : cases) {
        EXPECT_EQ(withExclusions(set).exclusionString(), string) << set;
    }
}

// The argument is not changed; the property keeps the value it had at construction.
TEST(Exclusions, OverridesNeverDropTheSystemExclusion) {
    const struct {
        Storage::exclusions ex, overrides;
        const char* string;
    } cases[] = {
        {0x080, 0x080, "     S    "},
        {0x040, 0x040, "          "},
        // U was in the string before the override, so it is put back; only the bit-derived rest goes.
        {0x3FF, 0x3FF, "     SU   "},
        {0x0C1, 0x001, "     S  W "},
    };
    for (const auto& c : cases) {
        Storage s = withExclusions(c.ex);
        Storage::exclusions o = c.overrides;
        s.setExclusionOverrides(o);
        EXPECT_EQ(s.exclusionString(), c.string);
        EXPECT_EQ(o, c.overrides);
        EXPECT_EQ(s.exclusionOverrides(), c.overrides & ~0x080u);
        EXPECT_EQ(s.properties().at("exclusion").value(), withExclusions(c.ex).exclusionString());
    }
}

TEST(Exclusions, LogLines) {
    vessa::test::LogCapture log;
    Storage s = withExclusions(0x040);
    Storage::exclusions o = 0x040;
    log.clear();
    s.setExclusionOverrides(o);
    const std::vector<std::string> m = log.messages();
    ASSERT_GE(m.size(), 8u);
    EXPECT_EQ(
        std::vector<std::string>(m.begin() + 1, m.begin() + 8),
        (std::vector<std::string>{"Current exclusion string: \"        W \"", "Checked for 'U'", "Enter",
                                  "Exclusions: 64", "Overrides : 64", "Filtered  : 0", "No exclusions"}));
    log.clear();
    withExclusions(0x011);
    EXPECT_TRUE(log.hasMessage("Exclusion string \"A   P     \""));
}

// The user mark lives in the string only: kept across an override change, dropped by a recomputation
// from the bits, put back by one when the bit is set.
TEST(Exclusions, UserMarkLivesInTheString) {
    Storage s = withExclusions(0);
    s.setUserExclusion(true);
    EXPECT_EQ(s.exclusionString(), "      U   ");
    EXPECT_EQ(s.exclusionsList(), 0u);
    Storage::exclusions none = 0;
    s.setExclusionOverrides(none);
    EXPECT_EQ(s.exclusionString(), "      U   ");
    s.resetExclusionString();
    EXPECT_EQ(s.exclusionString(), "          ");
    s.setUserExclusion(true);
    s.setUserExclusion(false);
    EXPECT_EQ(s.exclusionString(), "          ");
    Storage u = withExclusions(0x100);
    u.setUserExclusion(false);
    EXPECT_EQ(u.exclusionString(), "          ");
    u.resetExclusionString();
    EXPECT_EQ(u.exclusionString(), "      U   ");
}

}  // namespace
