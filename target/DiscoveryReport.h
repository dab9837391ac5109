// What a local discovery run could not see, for the callers that must not take a partial picture for a
// whole one (a device left out of the list, or listed without the reason that keeps it out of tests).
#pragma once

#include <string>
#include <vector>

namespace vessa::target {

// One device of the machine and where it stands among the others: disks and multipath maps at the top,
// below them their partitions, the devices built on them (logical volumes, partition maps) and the
// paths of a map.
struct DeviceNode {
    int depth = 0;                   // 0 at the top
    std::string name;                // kernel name
    std::string relation;            // to the node above: "partition", "holder", "path"; "" at the top
    unsigned long long size = 0;     // bytes, as the partition list gives it
    std::vector<std::size_t> items;  // positions in the host's storage list of the items made from it
};

struct DiscoveryReport {
    struct Failure {
        std::string source;  // as the run names it: "/sys/block", "dmsetup", "lvdisplay" ...
        std::string reason;  // the text of what stopped its reader
    };
    // Readers that stopped on data they could not understand; the run went on with what they had read.
    std::vector<Failure> failedSources;
    // What the run could not see, one line each in words; empty when it saw everything there was.
    std::vector<std::string> warnings;

    // The machine's devices in tree order (each node followed by those below it), when the caller
    // asked for them; a device below two others appears under each.
    std::vector<DeviceNode> devices;

    bool complete() const { return warnings.empty(); }
};

}  // namespace vessa::target
