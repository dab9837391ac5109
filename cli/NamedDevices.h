// The devices named on a command line (`vessa-storage list sdb /dev/mapper/mpatha`), and what lies below
// them in the run's device tree: partitions, the devices built on them, the paths of a map.
#pragma once

#include <string>
#include <vector>

#include "target/DiscoveryReport.h"

namespace vessa::cli {

// `report` with its device tree cut down to the subtrees of the named devices, each named device at
// depth 0, in the tree's order. Names are taken as kernelNameOf takes them (cli/Guard.h). Throws
// std::runtime_error naming the first name that is no device of the tree.
vessa::target::DiscoveryReport namedDevices(const vessa::target::DiscoveryReport& report,
                                            const std::vector<std::string>& names);

}  // namespace vessa::cli
