// A mounted file system, as /etc/mtab lists it.
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

// One line of a mount table, with the table's octal escapes (\040 for a blank) decoded.
struct MountLine {
    std::string device;
    std::string directory;
    std::string type;
    std::string options;
};
// The lines of a mount table: blank lines and "#" comments skipped, fields separated by blanks or
// tabs; missing fields are empty.
std::list<MountLine> parseMountTable(const std::string& text);

class MTableEntry {
  public:
    // `readable`: the entry passed the read test and may become a file-system target.
    MTableEntry(const std::string& mountPoint, const std::string& deviceName,
                const std::string& fileSystemType, bool readable = true);

    // Appends every mounted device that can be read, and every network or user-space mount (cifs,
    // nfs, fuse.) even when it cannot. A mounted device under /dev that fails the read test is still
    // appended, marked unreadable: it makes no file-system target, but what its mount point says
    // about the device (system, boot, swap) must not be lost because this process may not read the
    // device (a sandbox, a permission). False when the table cannot be read (the list is then empty).
    static bool readMTab(std::list<MTableEntry*>& result, Host* host);
    // The parsing half; `readable` answers the read test for a device.
    static void parse(const std::string& text, std::list<MTableEntry*>& result,
                      bool (*readable)(const std::string& device));

    // "/" is the system, "/boot" the boot area, "swap" swap.
    void getExclusions(Storage::exclusions& ex);
    void addProperties(const std::string& categoryPrefix, std::map<std::string, Property>& properties);

    const std::string& fileSystemType() const { return type_; }
    const std::string& mountPoint() const { return mountPoint_; }
    const std::string& deviceName() const { return device_; }
    // Whether the entry passed the read test.
    bool flag() const { return readable_; }

  private:
    std::string type_;
    std::string mountPoint_;
    std::string device_;
    bool readable_;
};

// Exclusions of a mount point, shared by both tables.
void mountPointExclusions(const std::string& mountPoint, Storage::exclusions& ex);

// The four properties of a mount-table entry, shared by both tables: keys begin with `keyPrefix`
// ("MTabEntry", "FsEntry") and end with the mount point or device, so that several entries of one
// device do not collide; `table` ("mtab", "fstab") ends the descriptions.
void addMountProperties(const std::string& keyPrefix, const std::string& category, const std::string& table,
                        const std::string& device, const std::string& mountPoint, const std::string& type,
                        std::map<std::string, Property>& properties);

}  // namespace vessa::target::lin
