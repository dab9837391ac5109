// Where the readers' records of one run stand, by what device links match them on: device numbers,
// kernel names, volume-group names, alias targets and the devices named by mount-table entries.
//
// Built once per run over the readers' lists, it lets each link look only at the records that could
// belong to it instead of walking every list: on a host with thousands of devices that walk made
// correlation quadratic. Every look-up returns a superset of the records that the link's matcher would
// accept, in the order of the reader's list, and the link still asks its matcher of each; so a link
// built through the index collects exactly what a walk over the whole lists collects, in the same order.
//
// The index points into the lists and the records, which must outlive it and must not change while it
// is used (matching may rename a device-mapper node, which changes nothing the index keys on).
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vessa::target::lin {

class DeviceLink;
class DiskBy;
class DmTreeDev;
class FsTableEntry;
class LogicalVolume;
class MTableEntry;
class PhysicalVolume;
class SysBlock;
class VolumeGroup;

class RecordIndex {
  public:
    RecordIndex(std::list<SysBlock*>& sysBlocks, std::list<DmTreeDev*>& dmDevs,
                std::list<PhysicalVolume*>& physicalVolumes, std::list<LogicalVolume*>& logicalVolumes,
                std::list<VolumeGroup*>& volumeGroups, std::list<FsTableEntry*>& fsTableEntries,
                std::list<MTableEntry*>& mTableEntries, std::list<DiskBy*>& diskBys);

    // /sys/block disks that are, or have a partition, of these numbers.
    std::vector<SysBlock*> sysBlocks(int major, int minor) const;
    // Top-level device-mapper trees that hold a node of these numbers.
    std::vector<DmTreeDev*> dmTrees(int major, int minor) const;
    // Physical volumes named `kernelName`, or "mapper/" and `kernelName`.
    std::vector<PhysicalVolume*> physicalVolumes(const std::string& kernelName) const;
    std::vector<LogicalVolume*> logicalVolumes(int major, int minor) const;
    // Groups named by the link's physical or logical volumes (collected before).
    std::vector<VolumeGroup*> volumeGroups(const DeviceLink& link) const;
    // Aliases whose target, a leading "/dev/" removed, is `kernelName`.
    std::vector<DiskBy*> diskBys(const std::string& kernelName) const;
    // Table entries whose device may name the link (by one of its names, a device-mapper name after
    // "mapper/", or one of its aliases); the collected records of the link decide which names it has.
    std::vector<FsTableEntry*> fsTableEntries(const DeviceLink& link) const;
    std::vector<MTableEntry*> mTableEntries(const DeviceLink& link) const;

  private:
    template <class T>
    using Positions = std::vector<std::pair<std::size_t, T*>>;  // (place in the list, record)
    template <class T, class Key>
    using Table = std::unordered_map<Key, Positions<T>>;

    template <class T, class Key>
    static void add(Table<T, Key>& table, const Key& key, std::size_t position, T* record);
    template <class T, class Key>
    static void gather(const Table<T, Key>& table, const Key& key, Positions<T>& into);
    template <class T>
    static std::vector<T*> inOrder(Positions<T>& found);
    template <class T>
    std::vector<T*> tableEntries(const DeviceLink& link, const Table<T, std::string>& byDevice,
                                 const Table<T, std::string>& byMapperName,
                                 const Table<T, std::string>& byAlias, const std::list<T*>& all) const;

    Table<SysBlock, std::uint64_t> sysBlocks_;
    Table<DmTreeDev, std::uint64_t> dmTrees_;
    Table<PhysicalVolume, std::string> physicalVolumes_;
    Table<LogicalVolume, std::uint64_t> logicalVolumes_;
    Table<VolumeGroup, std::string> volumeGroups_;
    Table<DiskBy, std::string> diskBys_;
    // Mount-table entries by their device below /dev, by what follows "/dev/mapper/", and (configured
    // table only) by alias kind and value.
    Table<FsTableEntry, std::string> fsByDevice_, fsByMapperName_, fsByAlias_;
    Table<MTableEntry, std::string> mByDevice_, mByMapperName_, mByAlias_;
    std::list<FsTableEntry*>& fsTableEntries_;
    std::list<MTableEntry*>& mTableEntries_;
};

}  // namespace vessa::target::lin
