// File status of the base library, taken through the system view.
#pragma once

#include <list>
#include <string>

namespace vessa::sal::fs {

// The status of one host path, read once at construction. For a path that does not exist, exists()
// is false and size() and blockSize() are 0.
class Stat {
  public:
    explicit Stat(const std::string& hostPath);

    bool exists() const { return exists_; }
    bool isDirectory() const { return isDirectory_; }
    bool isBlockDevice() const { return isBlockDevice_; }
    // Bytes; a block device's capacity.
    long long size() const { return size_; }
    // The preferred I/O block size of the node.
    long long blockSize() const { return blockSize_; }
    // The logical block size that the device reports to SCSI READ CAPACITY(10) / (16); 0 when it does
    // not answer (not a SCSI device, or no such node). Asks the device on every call.
    unsigned int blockSizeByRC() const;
    unsigned int blockSizeByRC16() const;

  private:
    std::string path_;
    bool exists_ = false;
    bool isDirectory_ = false;
    bool isBlockDevice_ = false;
    long long size_ = 0;
    long long blockSize_ = 0;
};

namespace util {
// Appends the names in a directory (sorted, without "." and ".."); false when it cannot be listed.
bool listDirectory(const std::string& hostPath, std::list<std::string>& names);
}  // namespace util

}  // namespace vessa::sal::fs
