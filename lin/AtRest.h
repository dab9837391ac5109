// What a device holds at rest, beside the exclusions and beside what the kernel says is in use now.
//
// A test host keeps data that nothing claims at the moment: a LUKS volume that is not open, swap that
// is not on, a file system named in /etc/fstab but not mounted, a volume-group member of a group this
// host does not activate, a stale RAID member. None of these sets an exclusion bit or shows in the
// kernel's tables, yet each is lost to a destructive test. Asked here, through the system view:
// - the signatures on every device (libblkid, platform/view/Signatures.h): "holds data: ext4 'DATA'",
//   "holds data: LVM2 physical volume", "holds data: swap space", "holds data: gpt partition table";
// - /etc/fstab, by device path, UUID=, LABEL=, PARTUUID= and PARTLABEL= (also through the
//   /dev/disk/by-* links): "..., configured in /etc/fstab at /data";
// - /etc/crypttab: "holds data: configured in /etc/crypttab as cryptdata";
// - sysfs `ro`: a read-only device can take no test ("read-only").
// What could not be asked of a device (its signatures, a table that exists but cannot be read) is
// kept as such: such a device is not known to be free.
//
// Nothing here changes a record, a link or an exclusion of the run, and nothing is logged.
#pragma once

#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/view/Signatures.h"

namespace vessa::target::lin {

class DeviceLink;

// The disk whose partition the device of `link` is, or nullptr when it is no partition.
const DeviceLink* diskOf(const DeviceLink* link);
// The device's directory under /sys/block: a partition's lies in its disk's ("/sys/block/sda/sda1").
std::string sysfsDirectory(const DeviceLink* link);

// One line of /etc/fstab or /etc/crypttab split into its blank-separated fields, octal escapes
// decoded; comments and empty lines left out.
std::vector<std::vector<std::string>> parseTable(const std::string& text);

// What a signature is, in words: "ext4 'DATA'", "LVM2 physical volume", "swap space".
std::string describeSignature(const sal::sys::Signature& signature);

class AtRest {
  public:
    // Reads the tables and probes every device of `links` (every link of the run, relations made).
    // The links must outlive the object.
    explicit AtRest(const std::list<DeviceLink*>& links);

    // Why the device of `link` holds data, each "holds data: ..."; empty when nothing was found.
    std::vector<std::string> data(const DeviceLink* link) const;
    bool readOnly(const DeviceLink* link) const;
    // The device's sysfs `ro` as a flag: its first line, blanks around it removed, "0" or "1";
    // nullopt when it could not be read or says anything else. Read once, here, for both uses.
    std::optional<bool> roFlag(const DeviceLink* link) const;
    // What the probe found on the device; nullptr for a device that was not probed (a network mount).
    const sal::sys::SignatureProbe* signatures(const DeviceLink* link) const;
    // What could not be checked for the device, in words ("its signatures (not read in this snapshot)").
    std::vector<std::string> unknown(const DeviceLink* link) const;

  private:
    struct Device {
        sal::sys::SignatureProbe signatures;
        std::vector<std::string> configured;  // "configured in /etc/fstab at /data", ...
        bool readOnly = false;                // `ro` begins with "1"
        std::optional<bool> roFlag;           // see roFlag()
    };
    // The device that a table's first field names, or nullptr.
    const DeviceLink* named(const std::string& spec) const;
    void readConfiguration(const std::string& table, std::size_t fields,
                           const std::string& (*what)(const std::vector<std::string>&, std::string&));

    std::unordered_map<const DeviceLink*, Device> devices_;
    std::unordered_map<std::string_view, const DeviceLink*> byName_;  // views of the links' names
    std::vector<std::string> unknownForAll_;
};

}  // namespace vessa::target::lin
