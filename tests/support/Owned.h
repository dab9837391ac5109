// A reader's result list that frees its records with the test: readers hand every record they append to
// the caller, so a test that keeps them in a plain list leaks them. Records that own nothing are
// deleted one by one; trees are deleted through their own links, as the discovery run frees them.
#pragma once

#include <list>

#include "lin/DmTreeDev.h"
#include "lin/SysBlock.h"

namespace vessa::test {

inline void freeRecord(vessa::target::lin::DmTreeDev* node) {
    for (vessa::target::lin::DmTreeDev* child : node->children()) {
        freeRecord(child);
    }
    delete node;
}

// A disk's partitions are read with their own holders and slaves; holders and slaves are names only.
inline void freeRecord(vessa::target::lin::SysBlock* device) {
    for (vessa::target::lin::SysBlock* p : device->partitions()) {
        freeRecord(p);
    }
    for (vessa::target::lin::SysBlock* h : device->holders()) {
        delete h;
    }
    for (vessa::target::lin::SysBlock* s : device->slaves()) {
        delete s;
    }
    delete device;
}

template <class T>
void freeRecord(T* record) {
    delete record;
}

// Passes as the std::list<T*>& that a reader fills.
template <class T>
struct Owned : std::list<T*> {
    Owned() = default;
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() {
        for (T* record : *this) {
            freeRecord(record);
        }
    }
};

}  // namespace vessa::test
