// One block device as the kernel describes it under /sys/block: numbers, size, model, vendor,
// revision, SCSI level, removability, and its partitions, holders and slaves.
//
// Ownership: a SysBlock owns nothing. The related objects in its lists are made with new and left to
// the discovery run, which keeps or discards them.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>

#include "target/Property.h"
#include "target/Storage.h"

namespace vessa::target {
class Host;
}

namespace vessa::target::lin {

class ProcPartition;

class SysBlock {
  public:
    // Reads everything of the device at `path` (/sys/block/<name>), its partitions included. An
    // attribute that is not a number throws the text-conversion exception; what was made is freed then.
    SysBlock(const std::string& path, Host* host);
    // A related device known by name only (a partition before it is read, a holder, a slave).
    explicit SysBlock(const std::string& name);

    // Appends one SysBlock for every entry of the partition list that has a /sys/block directory
    // ("/" in a kernel name is written "!" there, as in cciss!c0d0). Always returns true.
    static bool readSysFs(std::list<SysBlock*>& result, std::list<ProcPartition*>& procPartitions,
                          Host* host);

    // Frees the related objects this one made (partitions with theirs, holders, slaves), which it does
    // not own otherwise: the discovery run calls it when it frees its records.
    void releaseRelated();

    void getExclusions(Storage::exclusions& ex);
    void addProperties(const std::string& categoryPrefix, std::map<std::string, Property>& properties);

    const std::string& name() const { return name_; }
    const std::string& path() const { return path_; }
    int major() const { return major_; }
    int minor() const { return minor_; }
    const std::string& model() const { return device_ ? device_->model : none(); }
    const std::string& revision() const { return device_ ? device_->revision : none(); }
    int range() const { return range_; }
    bool removable() const { return removable_; }
    const std::string& scsiLevel() const { return device_ ? device_->scsiLevel : none(); }
    const std::string& vendor() const { return device_ ? device_->vendor : none(); }
    // 512-byte sectors from the size file; when that is 0, the node's size in its own block size.
    unsigned long long size() const { return size_; }
    const std::list<SysBlock*>& holders() const { return holders_; }
    const std::list<SysBlock*>& parents() const { return parents_; }
    const std::list<SysBlock*>& partitions() const { return partitions_; }
    const std::list<SysBlock*>& slaves() const { return slaves_; }

    // The attribute readers: each reads the file `path` + its suffix; a file that cannot be read or
    // whose first line is empty leaves the field as it was.
    void readDevFile(const std::string& path);
    void readDevModel(const std::string& path);
    void readRevision(const std::string& path);
    void readScsiLevel(const std::string& path);
    void readVendor(const std::string& path);
    void readRange(const std::string& path);
    void readRemovable(const std::string& path);
    void readSize(const std::string& path);
    void readHolders(const std::string& path, Host* host);
    void readSlaves(const std::string& path, Host* host);
    void readPartitions(Host* host);

  private:
    // What the device's driver tells of it. Most records have none: a host with tens of thousands of
    // devices records each holder and slave of each device, by name only, so it is kept apart.
    struct Device {
        std::string model;
        std::string revision;
        std::string scsiLevel;
        std::string vendor;
    };
    static const std::string& none();

    void dump(const std::string& indent) const;
    void readRelated(const std::string& directory, Host* host, std::list<SysBlock*>& into);
    void readDeviceLine(const std::string& file, std::string Device::*field);

    std::list<SysBlock*> holders_;
    int major_ = -1;
    int minor_ = -1;
    std::unique_ptr<Device> device_;  // null while nothing of it was read
    std::string name_;
    std::list<SysBlock*> parents_;
    std::list<SysBlock*> partitions_;
    int range_ = -1;
    bool removable_ = true;
    unsigned long long size_ = 0;
    std::list<SysBlock*> slaves_;
    std::string path_;
};

}  // namespace vessa::target::lin
