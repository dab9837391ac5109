#include <gtest/gtest.h>

#include "support/TestSupport.h"
#include "target/Storage.h"

using vessa::target::Storage;

namespace {

Storage withExclusions(Storage::exclusions ex) {
    return Storage(Storage::discoveredBlockDevice, "d", "/dev/d", 4096, 0, "", ex, {});
}

// The string is in letter order A G I M P S U V W Z, which is not the bit order.
TEST(Exclusions, EverySetRendersInLetterOrder) {
    const std::pair<const char*, Storage::exclusions> letters[] = {
        {"A", 0x001}, {"G", 0x020}, {"I", 0x004}, {"M", 0x008}, {"P", 0x010},
        {"S", 0x080}, {"U", 0x100}, {"V", 0x200}, {"W", 0x040}, {"Z", 0x002}};
    for (Storage::exclusions set = 0; set < 1024; ++set) {
        std::string expected;
        for (const auto& [letter, bit] : letters) {
            expected += (set & bit) ? letter : " ";
        }
        Storage s = withExclusions(set);
        ASSERT_EQ(s.exclusionString(), expected) << set;
        ASSERT_EQ(s.properties().at("exclusion").value(), expected) << set;
    }
    EXPECT_EQ(withExclusions(0x3FF).exclusionString(), "AGIMPSUVWZ");
}

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
        EXPECT_EQ(o, c.overrides);  // the argument is not changed
        EXPECT_EQ(s.exclusionOverrides(), c.overrides & ~0x080u);
        // The property keeps the value it had at construction.
        Storage fresh = withExclusions(c.ex);
        EXPECT_EQ(s.properties().at("exclusion").value(), fresh.exclusionString());
    }
}

TEST(Exclusions, LogLines) {
    vessa::test::LogCapture log;
    Storage s = withExclusions(0x040);
    Storage::exclusions o = 0x040;
    log.clear();
    s.setExclusionOverrides(o);
    std::vector<std::string> m = log.messages();
    ASSERT_GE(m.size(), 8u);
    EXPECT_EQ(m[1], "Current exclusion string: \"        W \"");
    EXPECT_EQ(m[2], "Checked for 'U'");
    EXPECT_EQ(m[4], "Exclusions: 64");
    EXPECT_EQ(m[5], "Overrides : 64");
    EXPECT_EQ(m[6], "Filtered  : 0");
    EXPECT_EQ(m[7], "No exclusions");
    log.clear();
    Storage t = withExclusions(0x011);
    EXPECT_TRUE(log.hasMessage("Exclusion string \"A   P     \""));
}

TEST(Exclusions, UserMarkLivesInTheString) {
    Storage s = withExclusions(0);
    s.setUserExclusion(true);
    EXPECT_EQ(s.exclusionString(), "      U   ");
    EXPECT_EQ(s.exclusionsList(), 0u);
    Storage::exclusions none = 0;
    s.setExclusionOverrides(none);
    EXPECT_EQ(s.exclusionString(), "      U   ");  // kept across an override change
    s.resetExclusionString();
    EXPECT_EQ(s.exclusionString(), "          ");  // recomputed from the bits alone
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
