// A reader's result list that frees its records with the test: readers hand every record they append to
// the caller. Trees are freed through their own links, as the discovery run frees them.
#pragma once

#include <algorithm>
#include <list>
#include <string>

#include "lin/DmTreeDev.h"
#include "lin/SysBlock.h"

namespace vessa::test {

inline void freeRecord(vessa::target::lin::DmTreeDev* node) {
    for (vessa::target::lin::DmTreeDev* child : node->children()) {
        freeRecord(child);
    }
    delete node;
}

inline void freeRecord(vessa::target::lin::SysBlock* device) {
    device->releaseRelated();
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
    // The first record of that name, or null.
    T* named(const std::string& name) const {
        auto it = std::find_if(this->begin(), this->end(), [&name](T* t) { return t->name() == name; });
        return it == this->end() ? nullptr : *it;
    }
};

}  // namespace vessa::test
