// A reader's result list that frees its records with the test: readers hand every record they append to
// the caller. They are freed as the discovery run frees them (lin::freeRecord).
#pragma once

#include <algorithm>
#include <list>
#include <string>

#include "lin/RunRecords.h"

namespace vessa::test {

// Passes as the std::list<T*>& that a reader fills.
template <class T>
struct Owned : std::list<T*> {
    Owned() = default;
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() {
        for (T* record : *this) {
            vessa::target::lin::freeRecord(record);
        }
    }
    // The first record of that name, or null.
    T* named(const std::string& name) const {
        auto it = std::find_if(this->begin(), this->end(), [&name](T* t) { return t->name() == name; });
        return it == this->end() ? nullptr : *it;
    }
};

}  // namespace vessa::test
