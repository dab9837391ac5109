// Who a storage item's device is, as a storage engineer names it: by serial number, WWN or
// /dev/disk/by-id link rather than by its kernel name, which changes from boot to boot; with what the
// kernel says of its media and what signature lies on it.
//
// Every field may be unknown: a device that lacks the attribute (a loop device has no serial), a
// snapshot taken before the fact was recorded, an item of another host's listing. Unknown is an empty
// optional, never a made-up value.
#pragma once

#include <optional>
#include <string>

namespace vessa::target {

struct Identity {
    std::optional<std::string> serial;     // the device's serial number (its disk's, for a partition)
    std::optional<std::string> wwn;        // World Wide Name, as "0x5000c500a1b2c3d4" or "eui.0025..."
    std::optional<std::string> byId;       // a /dev/disk/by-id link to it, the path of the link
    std::optional<bool> rotational;        // spinning media (its disk's queue)
    std::optional<bool> readOnly;          // the kernel refuses writes to it
    std::optional<std::string> transport;  // "sata", "sas", "nvme", "usb", ...; "" for none (loop, dm)
    std::optional<unsigned int> logicalSectorSize;   // bytes
    std::optional<unsigned int> physicalSectorSize;  // bytes
    std::optional<std::string> fsType;  // the signature on it: "ext4", "swap", "LVM2_member", ...
    std::optional<std::string> uuid;    // that signature's UUID
    std::optional<std::string> label;   // that signature's label
};

}  // namespace vessa::target
