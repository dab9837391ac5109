// The line walk shared by the three LVM display readers: every line is tested for containing one of a
// table's keys, in order; the first key found decides. The first key of the table starts a record:
// the pending record (when it has a name) is emitted and a new one begins with the name, a leading
// "/dev/" dropped. The last pending record is emitted after the last line.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vessa::target::lin {

// The trimmed text after the first occurrence of `key` in `line`. The position is computed in unsigned
// arithmetic, as the readers always have: for a key that does not occur, the text starts at the
// not-found position plus the key's length, which wraps around to the character at the key's length
// minus one.
std::string lvmValue(const std::string& line, const std::string& key);

struct LvmKey {
    const char* match;    // what the line must contain
    const char* extract;  // the key the value is taken after (normally the same)
};

// Walks `output`; `fields` has one slot per key, slot 0 the record's name. `emit` is called with the
// fields of every record that has a name; `onName` with each new name.
void walkLvmDisplay(const std::string& output, const std::vector<LvmKey>& keys,
                    const std::function<void(std::vector<std::string>&)>& emit,
                    const std::function<void(const std::string&)>& onName);

}  // namespace vessa::target::lin
