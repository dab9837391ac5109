// Names of file systems by the magic number that statfs reports for them (the kernel's numbers).
#pragma once

#include <string>

namespace vessa::target::lin {

struct FileSystemType {
    long long magic;
    const char* name;
};

// The name of a magic number, or "" when the table does not know it.
std::string fileSystemName(long long magic);
// The whole table, for callers that list it; ends with {0, nullptr}.
const FileSystemType* fileSystemTypes();

}  // namespace vessa::target::lin
