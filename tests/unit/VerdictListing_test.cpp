#include "target/VerdictListing.h"

#include <gtest/gtest.h>

#include <sstream>

using vessa::target::Verdict;

namespace {

// The verdicts behind a listing come back as written, and the listing before them is left exactly as
// the listing alone would be.
TEST(VerdictListing, RoundTripBehindAnUntouchedListing) {
    Verdict excluded, inUse, candidate;
    excluded.add(Verdict::Excluded, "system");
    excluded.add(Verdict::HoldsData, "holds data: ext4 'root'\tconfigured\nin /etc/fstab");
    inUse.add(Verdict::InUse, "mounted at /mnt/x");
    inUse.add(Verdict::Unknown, "its signatures (the device did not answer in time)");
    const std::string listing = "136\n[0]~/dev/sda~sda~~~~~[     S    ]~0~0~1~1024~0~1~0\n";
    std::ostringstream out;
    out << listing;
    vessa::target::writeVerdictListing(out, {"not running as root"}, {excluded, inUse, candidate});

    std::string output = out.str();
    const std::string document = vessa::target::cutVerdictListing(output);
    EXPECT_EQ(output, listing);
    std::vector<std::string> warnings;
    std::vector<Verdict> got;
    ASSERT_TRUE(vessa::target::parseVerdictListing(document, 3, warnings, got));
    EXPECT_EQ(warnings, std::vector<std::string>{"not running as root"});
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[0].kind(), Verdict::Excluded);
    EXPECT_EQ(got[0].reasons(),
              (std::vector<std::string>{"system", "holds data: ext4 'root' configured in /etc/fstab"}));
    EXPECT_EQ(got[1].kind(), Verdict::InUse);
    EXPECT_EQ(got[1].reasons(), inUse.reasons());
    EXPECT_TRUE(got[2].candidate());

    // Another count, or a line not understood, gives no verdicts at all; no mark leaves the output be.
    EXPECT_FALSE(vessa::target::parseVerdictListing(document, 2, warnings, got));
    EXPECT_TRUE(got.empty() && warnings.empty());
    EXPECT_FALSE(vessa::target::parseVerdictListing("v\t9\tx\n", 1, warnings, got));
    std::string plain = listing;
    EXPECT_EQ(vessa::target::cutVerdictListing(plain), "");
    EXPECT_EQ(plain, listing);
}

}  // namespace
