#include "lin/LinkIndex.h"

#include <algorithm>
#include <unordered_set>

#include "lin/DeviceLink.h"
#include "lin/DmTreeDev.h"
#include "lin/LogicalVolume.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
#include "lin/lin.h"

namespace vessa::target::lin {

RelationIndex::RelationIndex(const std::list<DeviceLink*>& links) {
    std::size_t position = 0;
    for (DeviceLink* l : links) {
        position_[l] = position++;
        const ProcPartition* pp = l->procPartition();
        byNumbers_[numbersKey(pp->major(), pp->minor())].push_back(l);
        byName_[l->name()].push_back(l);
        for (const DmTreeDev* d : l->dmDevs) {
            if (!d->multipath()) {
                continue;
            }
            for (const DmTreeDev* child : d->children()) {
                mpathParentsOf_[numbersKey(child->major(), child->minor())].push_back(l);
            }
        }
    }
}

std::vector<DeviceLink*> RelationIndex::candidates(DeviceLink* a) const {
    std::vector<DeviceLink*> found;
    const ProcPartition* pp = a->procPartition();
    add(found, mpathParentsOf_, numbersKey(pp->major(), pp->minor()));
    for (const DmTreeDev* d : a->dmDevs) {
        if (d->multipath()) {
            for (const DmTreeDev* child : d->children()) {
                add(found, byNumbers_, numbersKey(child->major(), child->minor()));
            }
        }
        for (const DmTreeDev* parent : d->parents()) {
            add(found, byNumbers_, numbersKey(parent->major(), parent->minor()));
        }
    }
    for (const SysBlock* s : a->sysBlocks) {
        for (const SysBlock* part : s->partitions()) {
            add(found, byName_, part->name());
        }
    }
    const std::string& name = a->name();
    for (auto it = byName_.upper_bound(name);
         it != byName_.end() && it->first.compare(0, name.size(), name) == 0; ++it) {
        found.insert(found.end(), it->second.begin(), it->second.end());
    }
    std::sort(found.begin(), found.end(),
              [this](DeviceLink* x, DeviceLink* y) { return position_.at(x) < position_.at(y); });
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

VolumeReach::VolumeReach(const std::list<DeviceLink*>& roots) {
    std::vector<DeviceLink*> all;
    std::unordered_map<DeviceLink*, std::vector<DeviceLink*>> above;
    std::unordered_set<DeviceLink*> seen;
    std::vector<DeviceLink*> stack(roots.begin(), roots.end());
    while (!stack.empty()) {
        DeviceLink* l = stack.back();
        stack.pop_back();
        if (!seen.insert(l).second) {
            continue;
        }
        all.push_back(l);
        for (const auto* list : {&l->partitions, &l->holders}) {
            for (DeviceLink* below : *list) {
                above[below].push_back(l);
                stack.push_back(below);
            }
        }
    }
    for (DeviceLink* l : all) {
        if (l->logicalVolumes.empty()) {
            continue;
        }
        std::vector<std::uint64_t> keys;
        for (const LogicalVolume* v : l->logicalVolumes) {
            keys.push_back(numbersKey(v->major(), v->minor()));
        }
        // Every link from which this one is reached sees its volumes.
        std::unordered_set<DeviceLink*> reached;
        std::vector<DeviceLink*> up = {l};
        while (!up.empty()) {
            DeviceLink* x = up.back();
            up.pop_back();
            if (!reached.insert(x).second) {
                continue;
            }
            std::vector<std::uint64_t>& set = reach_[x];
            set.insert(set.end(), keys.begin(), keys.end());
            auto it = above.find(x);
            if (it != above.end()) {
                up.insert(up.end(), it->second.begin(), it->second.end());
            }
        }
    }
    for (auto& [link, set] : reach_) {
        std::sort(set.begin(), set.end());
        set.erase(std::unique(set.begin(), set.end()), set.end());
    }
    std::size_t position = 0;
    for (DeviceLink* r : roots) {
        auto it = reach_.find(r);
        if (it != reach_.end()) {
            for (std::uint64_t key : it->second) {
                rootsByKey_[key].emplace_back(position, r);
            }
        }
        ++position;
    }
}

bool VolumeReach::meet(const DeviceLink* a, const DeviceLink* b) const {
    auto ia = reach_.find(a);
    auto ib = reach_.find(b);
    if (ia == reach_.end() || ib == reach_.end()) {
        return false;
    }
    const std::vector<std::uint64_t>& x = ia->second;
    const std::vector<std::uint64_t>& y = ib->second;
    for (std::size_t i = 0, j = 0; i < x.size() && j < y.size();) {
        if (x[i] == y[j]) {
            return true;
        }
        x[i] < y[j] ? ++i : ++j;
    }
    return false;
}

std::vector<DeviceLink*> VolumeReach::partners(const DeviceLink* a) const {
    std::vector<std::pair<std::size_t, DeviceLink*>> found;
    auto it = reach_.find(a);
    if (it != reach_.end()) {
        for (std::uint64_t key : it->second) {
            const auto& roots = rootsByKey_.at(key);
            found.insert(found.end(), roots.begin(), roots.end());
        }
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    std::vector<DeviceLink*> partners;
    for (const auto& f : found) {
        partners.push_back(f.second);
    }
    return partners;
}

}  // namespace vessa::target::lin
