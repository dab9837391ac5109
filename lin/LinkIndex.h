// Indexes over the device links of one run, for the two steps that relate links pairwise.
//
// Both answer "which other links could this one possibly be related to" with a superset of the links
// that the step's own tests would accept, in the order of the run's list; the step then runs its tests
// on those alone. So a step that consults them records exactly what it records when it tests every
// pair, while on a host with thousands of paths it tests a handful per link instead of all of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vessa::target::lin {

class DeviceLink;

// For cleanLinks: every link that could be a multipath path or parent, a partition, or a holder of a
// given one (by device numbers, the device-mapper tree, /sys/block partitions and kernel-name prefixes).
class RelationIndex {
  public:
    explicit RelationIndex(const std::list<DeviceLink*>& links);
    // The candidates of `a`, in list order.
    std::vector<DeviceLink*> candidates(DeviceLink* a) const;

  private:
    template <class Map, class Key>
    static void add(std::vector<DeviceLink*>& found, const Map& map, const Key& key) {
        auto it = map.find(key);
        if (it != map.end()) {
            found.insert(found.end(), it->second.begin(), it->second.end());
        }
    }

    std::unordered_map<DeviceLink*, std::size_t> position_;
    std::unordered_map<std::uint64_t, std::vector<DeviceLink*>> byNumbers_;
    std::unordered_map<std::uint64_t, std::vector<DeviceLink*>> mpathParentsOf_;
    std::map<std::string, std::vector<DeviceLink*>> byName_;
};

// For makeUnique: the logical-volume numbers found below each link (itself, its partitions and
// holders, further down), where makeUnique looks. Volumes only ever move between lists of equal numbers
// there, so what a link can reach never changes while makeUnique works; two links whose sets do not
// meet cannot change each other, and neither can anything below them.
class VolumeReach {
  public:
    explicit VolumeReach(const std::list<DeviceLink*>& roots);
    bool meet(const DeviceLink* a, const DeviceLink* b) const;
    // The roots whose sets meet that of `a`, in list order.
    std::vector<DeviceLink*> partners(const DeviceLink* a) const;

  private:
    std::unordered_map<const DeviceLink*, std::vector<std::uint64_t>> reach_;
    std::unordered_map<std::uint64_t, std::vector<std::pair<std::size_t, DeviceLink*>>> rootsByKey_;
};

}  // namespace vessa::target::lin
