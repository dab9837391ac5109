#include <gtest/gtest.h>

#include "target/Storage.h"

using vessa::target::Storage;

namespace {

Storage withExclusions(Storage::exclusions ex) {
    return Storage(Storage::discoveredBlockDevice, "d", "/dev/d", 4096, 0, "", ex, {});
}

// (The letters of each bit, what overrides keep and the lines they log are the records of
// tests/data/library/handmade-exclusion-bits.)

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
