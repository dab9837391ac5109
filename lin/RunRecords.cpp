#include "lin/RunRecords.h"

namespace vessa::target::lin {

void freeRecord(DmTreeDev* node) {
    for (DmTreeDev* child : node->children()) {
        freeRecord(child);
    }
    delete node;
}

void freeRecord(SysBlock* device) {
    device->releaseRelated();
    delete device;
}

namespace {

template <class T>
void freeAll(std::list<T*>& list) {
    for (T* t : list) {
        freeRecord(t);
    }
}

}  // namespace

RunRecords::~RunRecords() {
    freeAll(allLinks);
    freeAll(procPartitions);
    freeAll(sysBlocks);
    freeAll(dmDevs);
    freeAll(physicalVolumes);
    freeAll(logicalVolumes);
    freeAll(volumeGroups);
    freeAll(fsTableEntries);
    freeAll(mTableEntries);
    freeAll(diskBys);
}

}  // namespace vessa::target::lin
