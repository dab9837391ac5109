#include "target/Verdict.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using vessa::target::Verdict;

namespace {

// An item is the first kind it has a reason for; its reasons come kind by kind, each once, whatever
// the order they were found in; only data at rest alone may be admitted by a test that overwrites data.
TEST(Verdict, FirstKindWinsAndReasonsComeKindByKind) {
    using Found = std::vector<std::pair<Verdict::Kind, const char*>>;
    const struct {
        Found found;
        const char* kind;
        std::vector<std::string> reasons;
        bool onlyData;
    } cases[] = {
        {{}, "candidate", {}, false},
        {{{Verdict::Unknown, "its signatures"}, {Verdict::HoldsData, "holds data: swap space"}},
         "holds data",
         {"holds data: swap space", "unknown: its signatures"},
         false},
        {{{Verdict::HoldsData, "holds data: swap space"}, {Verdict::HoldsData, "holds data: swap space"}},
         "holds data",
         {"holds data: swap space"},
         true},
        {{{Verdict::HoldsData, "d"}, {Verdict::InUse, "mounted at /"}, {Verdict::Excluded, "system"}},
         "excluded",
         {"system", "mounted at /", "d"},
         false},
        {{{Verdict::Unknown, "a"}, {Verdict::Candidate, "ignored"}}, "unknown", {"unknown: a"}, false},
    };
    for (const auto& c : cases) {
        Verdict v;
        for (const auto& [kind, reason] : c.found) {
            v.add(kind, reason);
        }
        EXPECT_STREQ(v.word(), c.kind);
        EXPECT_EQ(v.reasons(), c.reasons);
        EXPECT_EQ(v.candidate(), c.reasons.empty());
        EXPECT_EQ(v.onlyData(), c.onlyData);
    }
}

}  // namespace
