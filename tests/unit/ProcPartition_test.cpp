#include "lin/ProcPartition.h"

#include <gtest/gtest.h>

namespace {

TEST(ProcPartition, BlankTokensSplitAtBlanksAndTrimTheRest) {
    const struct {
        const char* line;
        std::vector<std::string> tokens;
    } cases[] = {
        {"   8     0  976762584 sda  ", {"8", "0", "976762584", "sda"}},
        {"a \tb", {"a", "b"}},          // white space after a blank is trimmed away
        {"a\t b\tc", {"a\t", "b\tc"}},  // before a blank, and alone, it is part of the token
        {" \t\r\n", {}},
        {"", {}},
    };
    for (const auto& c : cases) {
        const std::list<std::string> tokens = vessa::target::lin::blankTokens(c.line);
        EXPECT_EQ(std::vector<std::string>(tokens.begin(), tokens.end()), c.tokens) << c.line;
    }
    // A line of a million blanks and tokens is cut in one walk.
    std::string longLine;
    for (int i = 0; i < 500000; ++i) {
        longLine += "7 ";
    }
    EXPECT_EQ(vessa::target::lin::blankTokens(longLine).size(), 500000u);
}

}  // namespace
