// A disk with its partitions (see Partition). The disk owns its partitions.
#pragma once

#include <list>
#include <memory>
#include <string>

#include "lin/Partition.h"

namespace vessa::target::lin {

class Disk {
  public:
    Disk(const std::string& name, unsigned long long size) : name_(name), size_(size) {}

    // Adds a partition of this disk and returns it.
    Partition& addPartition(const std::string& name, unsigned long long size, const std::string& mountPoint,
                            const std::string& volumeGroup);

    const std::string& name() const { return name_; }
    unsigned long long size() const { return size_; }
    const std::list<Partition>& partitions() const { return partitions_; }

  private:
    std::string name_;
    unsigned long long size_;
    std::list<Partition> partitions_;
};

}  // namespace vessa::target::lin
