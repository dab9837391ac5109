#include "lin/DeviceTree.h"

#include <algorithm>
#include <functional>

#include "lin/DeviceLink.h"
#include "lin/ProcPartition.h"

namespace vessa::target::lin {

std::vector<DeviceNode> deviceTree(
    const std::list<DeviceLink*>& roots,
    const std::unordered_map<const DeviceLink*, std::vector<std::size_t>>& itemsOf) {
    // Two walks, the first only counting: on a host with tens of thousands of devices the list is made
    // at the run's fullest moment, and a list that grows by doubling holds its old copy and its new one
    // at once each time it grows.
    std::vector<DeviceNode> nodes;
    std::size_t count = 0;
    bool counting = true;
    std::vector<const DeviceLink*> path;
    std::function<void(const DeviceLink*, int, const char*)> visit = [&](const DeviceLink* link, int depth,
                                                                         const char* relation) {
        if (std::find(path.begin(), path.end(), link) != path.end()) {
            return;
        }
        path.push_back(link);
        if (counting) {
            ++count;
        } else {
            DeviceNode& node = nodes.emplace_back();
            node.depth = depth;
            node.name = link->name();
            node.relation = relation;
            node.size = static_cast<unsigned long long>(link->procPartition()->blocks()) << 10;
            auto items = itemsOf.find(link);
            if (items != itemsOf.end()) {
                node.items = items->second;
            }
        }
        // A multipath pair is recorded twice by the run; each device below is shown once.
        std::vector<const DeviceLink*> shown;
        const struct {
            const std::list<DeviceLink*>* list;
            const char* relation;
        } below[] = {
            {&link->partitions, "partition"}, {&link->holders, "holder"}, {&link->mpathTargets, "path"}};
        for (const auto& b : below) {
            for (const DeviceLink* child : *b.list) {
                if (std::find(shown.begin(), shown.end(), child) == shown.end()) {
                    shown.push_back(child);
                    visit(child, depth + 1, b.relation);
                }
            }
        }
        path.pop_back();
    };
    auto walk = [&] {
        for (const DeviceLink* root : roots) {
            // The stand-ins for network and user-space file systems are shown only for their mounts.
            if (!root->procPartition()->isPseudo() || itemsOf.count(root) != 0) {
                visit(root, 0, "");
            }
        }
    };
    walk();
    nodes.reserve(count);
    counting = false;
    walk();
    return nodes;
}

}  // namespace vessa::target::lin
