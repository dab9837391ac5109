#include "lin/Disk.h"

namespace vessa::target::lin {

Partition& Disk::addPartition(const std::string& name, unsigned long long size, const std::string& mountPoint,
                              const std::string& volumeGroup) {
    partitions_.emplace_back(name, size, mountPoint, this, volumeGroup);
    return partitions_.back();
}

}  // namespace vessa::target::lin
