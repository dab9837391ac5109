// What a local discovery run could not see, for the callers that must not take a partial picture for a
// whole one (a device left out of the list, or listed without the reason that keeps it out of tests).
#pragma once

#include <string>
#include <vector>

namespace vessa::target {

struct DiscoveryReport {
    struct Failure {
        std::string source;  // as the run names it: "/sys/block", "dmsetup", "lvdisplay" ...
        std::string reason;  // the text of what stopped its reader
    };
    // Readers that stopped on data they could not understand; the run went on with what they had read.
    std::vector<Failure> failedSources;
    // What the run could not see, one line each in words; empty when it saw everything there was.
    std::vector<std::string> warnings;

    bool complete() const { return warnings.empty(); }
};

}  // namespace vessa::target
