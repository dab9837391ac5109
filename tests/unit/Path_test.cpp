#include "platform/Path.h"

#include <gtest/gtest.h>

using vessa::sal::fs::Path;

TEST(Path, JoinUsesExactlyOneSeparator) {
    const struct {
        const char* base;
        const char* component;
        const char* expected;
    } cases[] = {
        {"/mnt/data", "targetfile.dat", "/mnt/data/targetfile.dat"},
        {"/mnt/data/", "targetfile.dat", "/mnt/data/targetfile.dat"},
        {"/", "targetfile.dat", "/targetfile.dat"},
        {"/mnt", "/x", "/mnt/x"},
        {"", "x", "x"},
        {"a//", "b", "a//b"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ((Path(c.base) / c.component).str(), c.expected) << c.base << " + " << c.component;
    }
}

TEST(Path, FlipToSwapsSeparatorConventions) {
    EXPECT_EQ(Path("/mnt/a/targetfile.dat").flipTo(), "\\mnt\\a\\targetfile.dat");
    EXPECT_EQ(Path("C:\\dir/x").flipTo(), "C:/dir\\x");
    EXPECT_EQ(Path("").flipTo(), "");
}
