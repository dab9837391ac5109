// Every record and link of one discovery run, in one place.
//
// The readers hand each record they make to the caller; the links point into the records. A
// RunRecords owns both: its destructor frees the links first, then every record, trees (device-mapper
// nodes, a /sys/block device's partitions, holders and slaves) through their own links (freeRecord). Not
// copyable. Besides the run, the tests' oracle and the correlation benchmark keep their records in
// one.
#pragma once

#include <list>

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

// Frees one record as a reader handed it over: a device-mapper node with every node below it, a
// /sys/block device with its partitions, holders and slaves, anything else alone.
void freeRecord(DmTreeDev* node);
void freeRecord(SysBlock* device);
template <class T>
void freeRecord(T* record) {
    delete record;
}

struct RunRecords {
    RunRecords() = default;
    RunRecords(const RunRecords&) = delete;
    RunRecords& operator=(const RunRecords&) = delete;
    ~RunRecords();

    std::list<ProcPartition*> procPartitions;
    std::list<SysBlock*> sysBlocks;
    std::list<DmTreeDev*> dmDevs;
    std::list<PhysicalVolume*> physicalVolumes;
    std::list<LogicalVolume*> logicalVolumes;
    std::list<VolumeGroup*> volumeGroups;
    std::list<FsTableEntry*> fsTableEntries;
    std::list<MTableEntry*> mTableEntries;
    std::list<DiskBy*> diskBys;
    std::list<DeviceLink*> allLinks;  // every link made, whatever lists it was moved between
};

}  // namespace vessa::target::lin
