// The run's devices as a tree, for people who look at a machine the way its kernel stacks devices:
// each root of the run (a disk, a multipath map) followed by its partitions, the devices built on it
// and, for a map, its paths, recursively, with the storage items made from each.
#pragma once

#include <cstddef>
#include <list>
#include <unordered_map>
#include <vector>

#include "target/DiscoveryReport.h"

namespace vessa::target::lin {

class DeviceLink;

// `itemsOf`: for each link, the positions in the host's storage list of the items made from it. A link
// reached again below itself (contradictory data) is not entered a second time on that branch.
std::vector<DeviceNode> deviceTree(
    const std::list<DeviceLink*>& roots,
    const std::unordered_map<const DeviceLink*, std::vector<std::size_t>>& itemsOf);

}  // namespace vessa::target::lin
