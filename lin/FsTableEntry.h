// A configured file system, as /etc/fstab lists it.
#pragma once

#include <list>
#include <map>
#include <string>

#include "target/Property.h"
#include "target/Storage.h"

namespace vessa::target {
class Host;
}

namespace vessa::target::lin {

class FsTableEntry {
  public:
    // `queried`: the mount point answered statfs; only such entries become file-system items.
    FsTableEntry(const std::string& mountPoint, const std::string& deviceName,
                 const std::string& fileSystemType, bool queried);

    // Appends every entry of /etc/fstab; false when the table cannot be read (the list is then empty).
    static bool readFsTab(std::list<FsTableEntry*>& result, Host* host);
    // The parsing half. Columns are split at the blank only (a line written with tabs is one device
    // field); empty lines and lines beginning with "#" are skipped; missing columns are empty.
    static void parse(const std::string& text, std::list<FsTableEntry*>& result);

    void getExclusions(Storage::exclusions& ex);
    void addProperties(const std::string& categoryPrefix, std::map<std::string, Property>& properties);

    const std::string& fileSystemType() const { return type_; }
    const std::string& mountPoint() const { return mountPoint_; }
    const std::string& deviceName() const { return device_; }
    bool flag() const { return queried_; }

  private:
    std::string type_;
    std::string mountPoint_;
    std::string device_;
    bool queried_;
};

}  // namespace vessa::target::lin
