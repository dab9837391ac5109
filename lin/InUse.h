// Why a device is in use, as the kernel tells it, beside the exclusions.
//
// The exclusions say what the partition list, the volume tools and the configured and mounted tables
// imply; a test host has more in use than that: a file system mounted where no table names it, swap
// turned on by hand, a device claimed by a mapping that the volume tools cannot see. Before a device is
// offered for destruction, these are asked of the kernel itself, through the system view:
// - /proc/self/mountinfo: every mount, by the device numbers of its source ("mounted at /home"), bind
//   mounts and device-mapper devices included, and by the devices its source names: a file system
//   over several devices names them all ("/dev/sdc1:/dev/sdc2"), and a btrfs mount shows a number of
//   no device (0:N) while /sys/fs/btrfs/<uuid>/devices/ lists its members;
// - /proc/swaps: active swap ("active swap"; a swap file marks the device of the file system that holds
//   it: "holds active swap file /swapfile");
// - the holders that /sys/block lists for a device or partition ("held by dm-0"), also when the
//   device-mapper tool is missing;
// - an exclusive open of the device node, refused with EBUSY when anything has claimed the device
//   ("busy: an exclusive open is refused"), when the run is privileged.
// A device is also in use when something built on it is (a partition of it, a device holding it, the
// multipath map of which it is a path), with the reason named through that device:
// "through sdb1: mounted at /home".
//
// Nothing here changes a record, a link or an exclusion of the run; the reasons are reported beside them.
#pragma once

#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace vessa::target::lin {

class DeviceLink;
class SysBlock;

// One line of /proc/self/mountinfo (octal escapes decoded).
struct MountInfoLine {
    int major = -1;
    int minor = -1;
    std::string mountPoint;
    std::string fileSystemType;
    std::string source;
};
// Lines that do not have the table's shape are left out.
std::vector<MountInfoLine> parseMountInfo(const std::string& text);

// One line of /proc/swaps after its header.
struct SwapLine {
    std::string path;
    std::string type;  // "partition" or "file"
};
std::vector<SwapLine> parseSwaps(const std::string& text);

class InUse {
  public:
    // Reads the kernel's tables and tests the devices of `links` (every link of the run, relations
    // made). `sysBlocks` are the run's /sys/block records. The links and records must outlive the object.
    // `logged`: what it finds goes to the log (a run asked for the reasons); otherwise it writes
    // nothing there, so that a run's log stays that of its records.
    InUse(const std::list<DeviceLink*>& links, const std::list<SysBlock*>& sysBlocks, bool logged = true);

    // The reasons why the device of `link` is in use: its own, then those it has through the devices
    // built on it, each once; empty when the kernel reports nothing.
    std::vector<std::string> reasons(const DeviceLink* link) const;
    // What could not be asked, in words (a table that could not be read, devices that could not be
    // tested).
    const std::vector<std::string>& warnings() const { return warnings_; }

    // What could not be asked about the device of `link` itself, in words: its exclusive-open test
    // when the run could not make it, the kernel's tables when they could not be read.
    std::vector<std::string> unknown(const DeviceLink* link) const;
    // Why a file-system item whose file lies below `mountPoint` on the device of `link` would not write
    // into that device: nothing is mounted there, so the file lands in the file system that holds the
    // directory ("not mounted: would write into the file system of /"), or another device is. Empty when
    // the device of `link` is mounted there, or when the mount table could not be read.
    std::vector<std::string> targetReasons(const std::string& mountPoint, const DeviceLink* link) const;

  private:
    void readMounts(const std::list<DeviceLink*>& links);
    // The devices a mount's source names (each of "a:b", and the members of a btrfs file system).
    std::vector<const DeviceLink*> sourceDevices(const MountInfoLine& m) const;
    const DeviceLink* byPath(const std::string& path) const;
    void readBtrfs();
    void readHolders(const std::list<SysBlock*>& sysBlocks);
    void testExclusive(const std::list<DeviceLink*>& links);
    void add(const DeviceLink* link, const std::string& reason);
    std::vector<const DeviceLink*> builtOn(const DeviceLink* link) const;
    // Every device built on `link`, near ones first, each once.
    std::vector<const DeviceLink*> closure(const DeviceLink* link) const;
    // What the kernel says of the device itself; "busy" only where nothing built on it explains that.
    std::vector<std::string> ownReasons(const DeviceLink* link) const;

    // Keyed by views of the links' own names, which outlive this.
    std::unordered_map<std::string_view, std::vector<const DeviceLink*>> byName_;
    std::unordered_map<unsigned long long, std::vector<const DeviceLink*>> byNumbers_;
    std::unordered_map<const DeviceLink*, std::vector<std::string>> own_;
    std::unordered_set<const DeviceLink*> busy_;  // refused an exclusive open
    // Devices built on a device that /sys/block knows of but the device-mapper tree may not.
    std::unordered_map<const DeviceLink*, std::vector<const DeviceLink*>> heldBy_;
    std::vector<std::string> warnings_;
    std::vector<MountInfoLine> mounts_;
    bool mountsRead_ = false, swapsRead_ = false;
    std::unordered_map<const DeviceLink*, int> untested_;  // exclusive open not made: errno
    // btrfs members by the kernel name of any member: all of them.
    std::unordered_map<std::string, std::vector<std::string>> btrfsMembers_;
    bool logged_ = true;
};

}  // namespace vessa::target::lin
