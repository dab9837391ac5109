// Who a device is (target/Identity.h), read through the system view so that a capture records it and
// its replay gives it back; a snapshot without these files replays with the facts unknown.
//
// Sources, for the device of a link (a partition takes its disk's serial, WWN, transport, queue):
// - sysfs: `ro` (as the at-rest view read it), `queue/rotational`, `queue/logical_block_size`,
//   `queue/physical_block_size`, the serial (`device/serial`, else the unit serial number page
//   `device/vpd_pg80`), `wwid`, and the link /sys/dev/block/<major>:<minor> of the disk, whose target
//   names the bus the disk hangs on;
// - /dev/disk/by-id: the device's own link, and the "wwn-" link that carries its WWN;
// - the signature probe of the run (lin/AtRest.h): type, UUID and label of what lies on it.
// Nothing is logged.
#pragma once

#include <optional>
#include <string>

#include "target/Identity.h"

namespace vessa::target::lin {

class AtRest;
class DeviceLink;

// The identities of one run's devices. What a partition takes from its disk is read once for the
// disk and its partitions when they are asked one after another, as the kernel lists them, not again
// for every partition. Only the last disk's facts are kept (kept for every disk, they were 8 MB at
// 40,000 devices). `atRest` must outlive the reader.
class IdentityReader {
  public:
    explicit IdentityReader(const AtRest& atRest) : atRest_(atRest) {}
    // All fields unknown for a device without a node of its own (a network or user-space file system).
    Identity of(const DeviceLink* link);

  private:
    // What a disk's sysfs directory says, for the disk and each of its partitions.
    struct DiskFacts {
        std::optional<bool> rotational;
        std::optional<unsigned int> logicalSectorSize;
        std::optional<unsigned int> physicalSectorSize;
        std::optional<std::string> serial;
        std::optional<std::string> transport;
        bool wwidRead = false;               // wwidWwn is known: asked for a device without a "wwn-" link
        std::optional<std::string> wwidWwn;  // the WWN its wwid gives
    };
    DiskFacts& factsOf(const DeviceLink* disk);
    const std::optional<std::string>& wwidWwn(const DeviceLink* disk);

    const AtRest& atRest_;
    const DeviceLink* lastDisk_ = nullptr;  // whose facts `last_` holds
    DiskFacts last_;
};

// The bus named by the target of a disk's link in sysfs ("../devices/pci0000:00/.../ata1/host0/...":
// "sata"); "" for a device on none (loop, device mapper, md).
std::string transportOf(const std::string& sysfsTarget);

// The serial number in a unit serial number page (SCSI VPD page 0x80), blanks around it removed;
// "" when the page is not one or holds no printable serial.
std::string serialOfPage80(const std::string& page);

}  // namespace vessa::target::lin
