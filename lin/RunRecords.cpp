#include "lin/RunRecords.h"

namespace vessa::target::lin {

namespace {

void freeTree(DmTreeDev* d) {
    for (DmTreeDev* c : d->children()) {
        freeTree(c);
    }
    delete d;
}

template <class T>
void freeAll(std::list<T*>& list) {
    for (T* t : list) {
        delete t;
    }
}

}  // namespace

RunRecords::~RunRecords() {
    freeAll(allLinks);
    freeAll(procPartitions);
    for (SysBlock* s : sysBlocks) {
        s->releaseRelated();
        delete s;
    }
    for (DmTreeDev* d : dmDevs) {
        freeTree(d);
    }
    freeAll(physicalVolumes);
    freeAll(logicalVolumes);
    freeAll(volumeGroups);
    freeAll(fsTableEntries);
    freeAll(mTableEntries);
    freeAll(diskBys);
}

}  // namespace vessa::target::lin
