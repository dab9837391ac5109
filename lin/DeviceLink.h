// One block device of the local machine as every source sees it: built around one entry of the
// kernel's partition list, holding every record of the other readers that describes the same device,
// and related to the links of its partitions, holders and multipath paths.
//
// Ownership: a link owns none of the records or links it points to; the discovery run keeps them for
// the length of the run. A link converted to storage yields a self-contained Storage.
#pragma once

#include <list>
#include <map>
#include <string>

#include "target/Property.h"
#include "target/Storage.h"

namespace vessa::target {
class Host;
}

namespace vessa::target::lin {

class DiskBy;
class DmTreeDev;
class FsTableEntry;
class LogicalVolume;
class MTableEntry;
class PhysicalVolume;
class ProcPartition;
class RecordIndex;
class SysBlock;
class VolumeGroup;

class DeviceLink {
  public:
    // Picks out of each list the records that belong to this device, in this order: /sys/block,
    // device-mapper nodes, physical volumes, logical volumes, volume groups, aliases, fstab, mtab.
    // The order matters: later matchers compare with what the earlier ones collected.
    DeviceLink(ProcPartition* procPartition, std::list<SysBlock*>& sysBlocks, std::list<DmTreeDev*>& dmDevs,
               std::list<PhysicalVolume*>& physicalVolumes, std::list<LogicalVolume*>& logicalVolumes,
               std::list<VolumeGroup*>& volumeGroups, std::list<FsTableEntry*>& fsTableEntries,
               std::list<MTableEntry*>& mTableEntries, std::list<DiskBy*>& diskBys);

    // The same, looking only at the records that `index` names as candidates for this device; the
    // result is the same (see RecordIndex.h).
    DeviceLink(ProcPartition* procPartition, const RecordIndex& index);

    // A configured device as the matchers compare it: /dev/disk/by-id/x becomes ID=x, by-label LABEL=,
    // by-path PATH=, by-uuid UUID=; anything else is unchanged.
    static std::string configuredDevice(const std::string& device);
    // Whether a configured device names an alias (ID=, LABEL=, PATH=, UUID=): its kind and the value
    // compared with the aliases of that kind.
    static bool aliasForm(const std::string& device, int& kind, std::string& value);

    SysBlock* matchProcPart(SysBlock* s);
    DmTreeDev* matchProcPart(DmTreeDev* d);
    PhysicalVolume* matchProcPart(PhysicalVolume* v);
    LogicalVolume* matchProcPart(LogicalVolume* l);
    VolumeGroup* matchProcPart(VolumeGroup* g);
    DiskBy* matchProcPart(DiskBy* a);
    FsTableEntry* matchProcPart(FsTableEntry* f);
    MTableEntry* matchProcPart(MTableEntry* m);

    // sda1 of sda, hdc2 of hdc, cciss/c0d0p1 of cciss/c0d0, or whatever /sys/block lists as a
    // partition of `other`.
    bool isPartitionOf(DeviceLink* other);
    // This device is built on `other` (it is among the parents of one of other's device-mapper nodes).
    bool isHolderOf(DeviceLink* other);
    // This is the multipath device of which `other` is a path.
    bool isMpathParentOf(DeviceLink* other);
    bool findInParents(DmTreeDev* node);

    // The device's inquiry text, or the first non-empty one of its parents'.
    void getInquiry(std::string& inquiry, unsigned int timeout);
    void addProperties(const std::string& prefix, std::map<std::string, Property>& properties);

    // ORs into `exclusions` what this device carries, what its partitions, paths and device-mapper
    // nodes carry (fromChildren) and what the devices built on it and its volume groups carry
    // (fromHolders). Never clears a bit.
    void getExclusions(Storage::exclusions& exclusions, bool fromChildren, bool fromHolders);

    // Conversions; the caller owns the new item. See DeviceLink.cpp for the choices made where the
    // rules leave room.
    Storage* asStorage(Storage::storageType type, int index, unsigned int inquiryTimeout, Host* host);
    Storage* asStorage(LogicalVolume* lv, Storage::storageType type, int index, unsigned int inquiryTimeout,
                       Host* host);
    Storage* asStorage(FsTableEntry* entry, Storage::storageType type, int index, unsigned int inquiryTimeout,
                       Host* host);
    Storage* asStorage(MTableEntry* entry, Storage::storageType type, int index, unsigned int inquiryTimeout,
                       Host* host);

    // Writes everything the link has gathered to the log, related links indented below it.
    void print(int indent);

    // Marks a link as being walked for the length of one recursive call. The relations come from the
    // machine's own data, which may contradict itself (a device listed as built on its own holder);
    // every walk over them enters a link at most once at a time, so such data ends a walk instead of
    // recursing without end.
    // Each kind of walk has its own mark, since walks nest (converting a link walks its properties
    // while the run walks the links for file systems).
    enum Walk {
        Inquiry = 1,
        Properties = 2,
        Print = 4,
        Exclusions = 8,
        Unique = 16,
        Logical = 32,
        FileSystems = 64
    };
    class Visit {
      public:
        Visit(DeviceLink* link, Walk walk) : link_(link), walk_(walk), entered_((link->state_ & walk) == 0) {
            if (entered_) {
                link_->state_ |= walk_;
            }
        }
        ~Visit() {
            if (entered_) {
                link_->state_ &= ~walk_;
            }
        }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;
        // False when the link is already being walked further up: the caller returns at once.
        bool entered() const { return entered_; }

      private:
        DeviceLink* link_;
        int walk_;
        bool entered_;
    };

    ProcPartition* procPartition() const { return procPartition_; }
    const std::string& name() const;
    // The device node of the link: /dev/mapper/<name> for a named multipath device, else /dev/<kernel name>.
    std::string devicePath() const;

    std::list<DeviceLink*> parents;
    std::list<DeviceLink*> partitions;
    std::list<DeviceLink*> holders;
    std::list<DeviceLink*> mpathTargets;
    std::list<DeviceLink*> spare;
    std::list<SysBlock*> sysBlocks;
    std::list<DmTreeDev*> dmDevs;
    std::list<PhysicalVolume*> physicalVolumes;
    std::list<LogicalVolume*> logicalVolumes;
    std::list<VolumeGroup*> volumeGroups;
    std::list<FsTableEntry*> fsTableEntries;
    std::list<MTableEntry*> mTableEntries;
    std::list<DiskBy*> diskBys;

  private:
    // Step 2 of the mount-table rules: a "/dev/" device compared with every name this link knows.
    bool matchesDevPath(const std::string& device) const;
    Storage* fileSystemStorage(const std::string& device, const std::string& mountPoint, const char* trace,
                               Storage::storageType type, int index, unsigned int inquiryTimeout, Host* host);

    ProcPartition* procPartition_;
    int state_ = 0;
};

}  // namespace vessa::target::lin
