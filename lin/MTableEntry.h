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
// A field of the kernel's mount and swap tables with its \ooo escapes (a blank is \040) decoded.
std::string decodeOctalEscapes(const std::string& field);

// The lines of a mount table: blank lines and "#" comments skipped, fields separated by blanks or
// tabs; missing fields are empty.
std::list<MountLine> parseMountTable(const std::string& text);

class MTableEntry {
  public:
    MTableEntry(const std::string& mountPoint, const std::string& deviceName,
                const std::string& fileSystemType);

    // Appends every mounted device under /dev that can be read, and every network or user-space mount
    // (cifs, nfs, fuse.) even when it cannot; an unreadable device is logged and left out (the in-use
    // layer still sees its mount). False when the table cannot be read (the list is then empty).
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
    // Always true for a mounted-table entry.
    bool flag() const { return true; }

  private:
    std::string type_;
    std::string mountPoint_;
    std::string device_;
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
