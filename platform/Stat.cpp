#include "platform/Stat.h"

#include "platform/view/SystemView.h"

namespace vessa::sal::fs {

Stat::Stat(const std::string& hostPath) : path_(hostPath) {
    sys::FileStatus st;
    if (sys::current().status(hostPath, st)) {
        exists_ = true;
        isDirectory_ = st.isDirectory;
        isBlockDevice_ = st.isBlockDevice;
        size_ = st.size;
        blockSize_ = st.blockSize;
    }
}

unsigned int Stat::blockSizeByRC() const {
    return exists_ ? sys::current().readCapacityBlockSize(path_, false) : 0;
}

unsigned int Stat::blockSizeByRC16() const {
    return exists_ ? sys::current().readCapacityBlockSize(path_, true) : 0;
}

namespace util {

bool listDirectory(const std::string& hostPath, std::list<std::string>& names) {
    std::vector<sys::DirEntry> entries;
    if (!sys::current().listDirectory(hostPath, entries)) {
        return false;
    }
    for (const sys::DirEntry& e : entries) {
        names.push_back(e.name);
    }
    return true;
}

}  // namespace util

}  // namespace vessa::sal::fs
