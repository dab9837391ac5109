#include "lin/Partition.h"

#include "lin/FileSystemTypes.h"
#include "platform/Log.h"
#include "platform/view/SystemView.h"

namespace vessa::target::lin {

Partition::Partition(const std::string& name, unsigned long long size, const std::string& mountPoint,
                     Disk* parent, const std::string& volumeGroup)
    : name_(name), size_(size), mountPoint_(mountPoint), parent_(parent), volumeGroup_(volumeGroup) {}

bool Partition::queryFileSystemType() {
    sal::sys::FsStatus fs;
    if (mountPoint_.empty() || !sal::sys::current().fsStatus(mountPoint_, fs)) {
        return false;
    }
    setFileSystem(static_cast<long>(fs.type));
    return true;
}

void Partition::setFileSystem(long magic) {
    fileSystem_ = fileSystemName(magic);
    VESSA_LOG_AT("lin/Partition.cpp", "setFileSystem") << "Found FS Type: \"" << fileSystem_ << "\"";
}

}  // namespace vessa::target::lin
