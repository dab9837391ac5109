// The exported disk and partition classes: a simple picture of a disk with its partitions, for the
// suite's programs. Nothing in the discovery run makes them.
#pragma once

#include <list>
#include <string>

namespace vessa::target::lin {

class Disk;

class Partition {
  public:
    Partition(const std::string& name, unsigned long long size, const std::string& mountPoint, Disk* parent,
              const std::string& volumeGroup);

    // Asks statfs for the file system mounted at the mount point and records its name; false when the
    // mount point does not answer.
    bool queryFileSystemType();
    // Records the name of a statfs magic number ("" for one the table does not know).
    void setFileSystem(long magic);

    const std::string& name() const { return name_; }
    unsigned long long size() const { return size_; }
    const std::string& mountPoint() const { return mountPoint_; }
    const std::string& fileSystem() const { return fileSystem_; }
    Disk* parent() const { return parent_; }
    const std::string& volumeGroup() const { return volumeGroup_; }

  private:
    std::string name_;
    unsigned long long size_;
    std::string mountPoint_;
    std::string fileSystem_;
    Disk* parent_;
    std::string volumeGroup_;
};

}  // namespace vessa::target::lin
