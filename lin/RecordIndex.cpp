#include "lin/RecordIndex.h"

#include <algorithm>
#include <functional>

#include "lin/DeviceLink.h"
#include "lin/DiskBy.h"
#include "lin/DmTreeDev.h"
#include "lin/FsTableEntry.h"
#include "lin/LogicalVolume.h"
#include "lin/MTableEntry.h"
#include "lin/PhysicalVolume.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
#include "lin/VolumeGroup.h"

namespace vessa::target::lin {

namespace {

std::uint64_t numbers(int major, int minor) {
    return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(major)) << 32) |
           static_cast<std::uint32_t>(minor);
}

bool startsWith(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}

std::string aliasKey(int kind, const std::string& value) {
    return std::to_string(kind) + ":" + value;
}

// Files a table entry under what its device can be compared with: the device below /dev, and what
// follows "mapper/" there (a device-mapper name); for a configured entry also the alias it names.
template <class T, class Table>
void fileEntry(const std::string& device, bool configured, std::size_t position, T* entry, Table& byDevice,
               Table& byMapperName, Table& byAlias) {
    const std::string d = configured ? DeviceLink::configuredDevice(device) : device;
    if (startsWith(d, "/dev/")) {
        const std::string rest = d.substr(5);
        byDevice[rest].emplace_back(position, entry);
        if (startsWith(rest, "mapper/")) {
            byMapperName[rest.substr(7)].emplace_back(position, entry);
        }
        return;
    }
    int kind = 0;
    std::string value;
    if (configured && DeviceLink::aliasForm(d, kind, value)) {
        byAlias[aliasKey(kind, value)].emplace_back(position, entry);
    }
}

}  // namespace

template <class T, class Key>
void RecordIndex::add(Table<T, Key>& table, const Key& key, std::size_t position, T* record) {
    Positions<T>& at = table[key];
    if (at.empty() || at.back().second != record) {
        at.emplace_back(position, record);
    }
}

template <class T, class Key>
void RecordIndex::gather(const Table<T, Key>& table, const Key& key, Positions<T>& into) {
    auto it = table.find(key);
    if (it != table.end()) {
        into.insert(into.end(), it->second.begin(), it->second.end());
    }
}

template <class T>
std::vector<T*> RecordIndex::inOrder(Positions<T>& found) {
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<T*> records;
    records.reserve(found.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (i == 0 || found[i].first != found[i - 1].first) {
            records.push_back(found[i].second);
        }
    }
    return records;
}

RecordIndex::RecordIndex(std::list<SysBlock*>& sysBlocks, std::list<DmTreeDev*>& dmDevs,
                         std::list<PhysicalVolume*>& physicalVolumes,
                         std::list<LogicalVolume*>& logicalVolumes, std::list<VolumeGroup*>& volumeGroups,
                         std::list<FsTableEntry*>& fsTableEntries, std::list<MTableEntry*>& mTableEntries,
                         std::list<DiskBy*>& diskBys)
    : fsTableEntries_(fsTableEntries), mTableEntries_(mTableEntries) {
    std::size_t at = 0;
    for (SysBlock* s : sysBlocks) {
        add(sysBlocks_, numbers(s->major(), s->minor()), at, s);
        for (const SysBlock* p : s->partitions()) {
            add(sysBlocks_, numbers(p->major(), p->minor()), at, s);
        }
        ++at;
    }
    at = 0;
    for (DmTreeDev* root : dmDevs) {
        std::function<void(const DmTreeDev*)> walk = [&](const DmTreeDev* node) {
            add(dmTrees_, numbers(node->major(), node->minor()), at, root);
            for (const DmTreeDev* child : node->children()) {
                walk(child);
            }
        };
        walk(root);
        ++at;
    }
    at = 0;
    for (PhysicalVolume* v : physicalVolumes) {
        add(physicalVolumes_, v->name(), at, v);
        if (startsWith(v->name(), "mapper/")) {
            add(physicalVolumes_, v->name().substr(7), at, v);
        }
        ++at;
    }
    at = 0;
    for (LogicalVolume* l : logicalVolumes) {
        add(logicalVolumes_, numbers(l->major(), l->minor()), at++, l);
    }
    at = 0;
    for (VolumeGroup* g : volumeGroups) {
        add(volumeGroups_, g->name(), at++, g);
    }
    at = 0;
    for (DiskBy* a : diskBys) {
        const std::string& target = a->target();
        add(diskBys_, startsWith(target, "/dev/") ? target.substr(5) : target, at++, a);
    }
    at = 0;
    for (FsTableEntry* f : fsTableEntries) {
        fileEntry(f->deviceName(), true, at++, f, fsByDevice_, fsByMapperName_, fsByAlias_);
    }
    at = 0;
    for (MTableEntry* m : mTableEntries) {
        fileEntry(m->deviceName(), false, at++, m, mByDevice_, mByMapperName_, mByAlias_);
    }
}

std::vector<SysBlock*> RecordIndex::sysBlocks(int major, int minor) const {
    Positions<SysBlock> found;
    gather(sysBlocks_, numbers(major, minor), found);
    return inOrder(found);
}

std::vector<DmTreeDev*> RecordIndex::dmTrees(int major, int minor) const {
    Positions<DmTreeDev> found;
    gather(dmTrees_, numbers(major, minor), found);
    return inOrder(found);
}

std::vector<PhysicalVolume*> RecordIndex::physicalVolumes(const std::string& kernelName) const {
    Positions<PhysicalVolume> found;
    gather(physicalVolumes_, kernelName, found);
    return inOrder(found);
}

std::vector<LogicalVolume*> RecordIndex::logicalVolumes(int major, int minor) const {
    Positions<LogicalVolume> found;
    gather(logicalVolumes_, numbers(major, minor), found);
    return inOrder(found);
}

std::vector<VolumeGroup*> RecordIndex::volumeGroups(const DeviceLink& link) const {
    Positions<VolumeGroup> found;
    for (const PhysicalVolume* v : link.physicalVolumes) {
        gather(volumeGroups_, v->vgName(), found);
    }
    for (const LogicalVolume* l : link.logicalVolumes) {
        gather(volumeGroups_, l->vgName(), found);
    }
    return inOrder(found);
}

std::vector<DiskBy*> RecordIndex::diskBys(const std::string& kernelName) const {
    Positions<DiskBy> found;
    gather(diskBys_, kernelName, found);
    return inOrder(found);
}

template <class T>
std::vector<T*> RecordIndex::tableEntries(const DeviceLink& link, const Table<T, std::string>& byDevice,
                                          const Table<T, std::string>& byMapperName,
                                          const Table<T, std::string>& byAlias,
                                          const std::list<T*>& all) const {
    if (link.procPartition()->isPseudo()) {
        // Network and user-space file systems match by type; there are four such links at most.
        return std::vector<T*>(all.begin(), all.end());
    }
    Positions<T> found;
    gather(byDevice, link.name(), found);
    for (const SysBlock* s : link.sysBlocks) {
        gather(byDevice, s->name(), found);
    }
    for (const DmTreeDev* d : link.dmDevs) {
        gather(byDevice, d->name(), found);
        gather(byMapperName, d->name(), found);
    }
    for (const PhysicalVolume* v : link.physicalVolumes) {
        gather(byDevice, v->name(), found);
    }
    for (const LogicalVolume* l : link.logicalVolumes) {
        gather(byDevice, l->deviceName(), found);
    }
    for (const VolumeGroup* g : link.volumeGroups) {
        gather(byDevice, g->name(), found);
    }
    for (const DiskBy* a : link.diskBys) {
        gather(byAlias, aliasKey(a->kind(), a->alias()), found);
    }
    return inOrder(found);
}

std::vector<FsTableEntry*> RecordIndex::fsTableEntries(const DeviceLink& link) const {
    return tableEntries(link, fsByDevice_, fsByMapperName_, fsByAlias_, fsTableEntries_);
}

std::vector<MTableEntry*> RecordIndex::mTableEntries(const DeviceLink& link) const {
    return tableEntries(link, mByDevice_, mByMapperName_, mByAlias_, mTableEntries_);
}

}  // namespace vessa::target::lin
