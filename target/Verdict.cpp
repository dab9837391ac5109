#include "target/Verdict.h"

#include <algorithm>

namespace vessa::target {

namespace {

// Column of the exclusion string -> the reason in words. Column 2 (I) is never set by discovery; it is
// named for completeness.
const char* const kExclusionWords[10] = {"boot",
                                         "no signature",
                                         "reserved",
                                         "empty",
                                         "partitioned or holds a file system",
                                         "system",
                                         "user",
                                         "volume group member",
                                         "swap",
                                         "excluded by listing"};

}  // namespace

void Verdict::add(Kind kind, const std::string& reason) {
    if (kind == Candidate) {
        return;
    }
    const std::string text = kind == Unknown ? "unknown: " + reason : reason;
    if (std::find(reasons_.begin(), reasons_.end(), text) != reasons_.end()) {
        return;
    }
    // Kept in the order of the kinds, each kind's reasons in the order they came.
    auto at = std::upper_bound(of_.begin(), of_.end(), kind);
    reasons_.insert(reasons_.begin() + (at - of_.begin()), text);
    of_.insert(at, kind);
    kinds_ |= 1u << kind;
}

Verdict::Kind Verdict::kind() const {
    for (Kind k : {Excluded, InUse, HoldsData, Unknown}) {
        if (has(k)) {
            return k;
        }
    }
    return Candidate;
}

std::vector<std::string> Verdict::reasonsOf(Kind kind) const {
    std::vector<std::string> out;
    for (std::size_t i = 0; i < reasons_.size(); ++i) {
        if (of_[i] == kind) {
            out.push_back(reasons_[i]);
        }
    }
    return out;
}

const char* Verdict::word(Kind kind) {
    switch (kind) {
        case Excluded:
            return "excluded";
        case InUse:
            return "in use";
        case HoldsData:
            return "holds data";
        case Unknown:
            return "unknown";
        case Candidate:
            break;
    }
    return "candidate";
}

std::vector<std::string> Verdict::exclusionWords(const std::string& exclusionString) {
    std::vector<std::string> words;
    for (std::size_t i = 0; i < 10 && i < exclusionString.size(); ++i) {
        if (exclusionString[i] != ' ') {
            words.emplace_back(kExclusionWords[i]);
        }
    }
    return words;
}

}  // namespace vessa::target
