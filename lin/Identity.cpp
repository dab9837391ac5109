#include "lin/Identity.h"

#include "lin/AtRest.h"
#include "lin/DeviceLink.h"
#include "lin/DiskBy.h"
#include "lin/ProcPartition.h"
#include "lin/common.h"
#include "platform/view/SystemView.h"

namespace vessa::target::lin {

namespace {

std::string trimmed(const std::string& text) {
    const std::string::size_type b = text.find_first_not_of(" \t\n");
    if (b == std::string::npos) {
        return "";
    }
    return text.substr(b, text.find_last_not_of(" \t\n") - b + 1);
}

// The first line of a sysfs attribute, trimmed; nullopt when it cannot be read or is empty.
std::optional<std::string> attribute(const std::string& path) {
    std::string text;
    if (!sal::sys::current().readFile(path, text)) {
        return std::nullopt;
    }
    text = trimmed(text.substr(0, text.find('\n')));
    return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

std::optional<unsigned int> number(const std::string& path) {
    const std::optional<std::string> text = attribute(path);
    if (!text || text->find_first_not_of("0123456789") != std::string::npos || text->size() > 9) {
        return std::nullopt;
    }
    return static_cast<unsigned int>(std::stoul(*text));
}

std::optional<bool> flag(const std::string& path) {
    std::string text;
    return sal::sys::current().readFile(path, text) ? sysfsFlag(text) : std::nullopt;
}

// A by-id name without the "-partN" that udev adds for a partition.
std::string withoutPart(const std::string& name) {
    const std::string::size_type at = name.rfind("-part");
    if (at == std::string::npos || at + 5 == name.size() ||
        name.find_first_not_of("0123456789", at + 5) != std::string::npos) {
        return name;
    }
    return name.substr(0, at);
}

// A sysfs wwid as a WWN: NAA names as "0x...", EUI-64 names as they stand; other identifiers
// (t10 vendor texts, NVMe fallbacks) are no WWN.
std::optional<std::string> wwnOfWwid(const std::optional<std::string>& wwid) {
    if (!wwid) {
        return std::nullopt;
    }
    if (wwid->compare(0, 4, "naa.") == 0) {
        return "0x" + wwid->substr(4);
    }
    if (wwid->compare(0, 4, "eui.") == 0) {
        return *wwid;
    }
    return std::nullopt;
}

}  // namespace

std::string transportOf(const std::string& target) {
    static const std::pair<const char*, const char*> kBuses[] = {
        {"/usb", "usb"},       {"/nvme/", "nvme"},      {"/session", "iscsi"},
        {"/rport-", "fc"},     {"/end_device-", "sas"}, {"/ata", "sata"},
        {"/mmc_host/", "mmc"}, {"/virtio", "virtio"},   {"/firewire", "ieee1394"}};
    for (const auto& [mark, bus] : kBuses) {
        if (target.find(mark) != std::string::npos) {
            return bus;
        }
    }
    return "";
}

std::string serialOfPage80(const std::string& page) {
    if (page.size() < 4 || static_cast<unsigned char>(page[1]) != 0x80) {
        return "";
    }
    const std::size_t length = (static_cast<std::size_t>(static_cast<unsigned char>(page[2])) << 8) |
                               static_cast<unsigned char>(page[3]);
    const std::string serial = trimmed(page.substr(4, length));
    for (char c : serial) {
        if (c < 0x20 || c > 0x7e) {
            return "";
        }
    }
    return serial;
}

IdentityReader::DiskFacts& IdentityReader::factsOf(const DeviceLink* disk) {
    if (disk == lastDisk_) {
        return last_;
    }
    sal::sys::View& view = sal::sys::current();
    const std::string diskDir = sysfsDirectory(disk);
    DiskFacts f;
    f.rotational = flag(diskDir + "/queue/rotational");
    f.logicalSectorSize = number(diskDir + "/queue/logical_block_size");
    f.physicalSectorSize = number(diskDir + "/queue/physical_block_size");
    f.serial = attribute(diskDir + "/device/serial");
    std::string page;
    if (!f.serial && view.readFile(diskDir + "/device/vpd_pg80", page) && !serialOfPage80(page).empty()) {
        f.serial = serialOfPage80(page);
    }
    // The disk's place among the machine's devices, through its numbers: /sys/block/<disk> itself is a
    // directory in a snapshot, which cannot keep the link it is on the machine.
    const ProcPartition* numbers = disk->procPartition();
    std::string target;
    if (numbers->major() >= 0 && view.readLink("/sys/dev/block/" + std::to_string(numbers->major()) + ":" +
                                                   std::to_string(numbers->minor()),
                                               target)) {
        f.transport = transportOf(target);
    }
    lastDisk_ = disk;
    last_ = std::move(f);
    return last_;
}

const std::optional<std::string>& IdentityReader::wwidWwn(const DeviceLink* disk) {
    DiskFacts& f = factsOf(disk);
    if (!f.wwidRead) {
        f.wwidRead = true;
        const std::string diskDir = sysfsDirectory(disk);
        f.wwidWwn = wwnOfWwid(attribute(diskDir + "/wwid"));
        if (!f.wwidWwn) {
            f.wwidWwn = wwnOfWwid(attribute(diskDir + "/device/wwid"));
        }
    }
    return f.wwidWwn;
}

Identity IdentityReader::of(const DeviceLink* link) {
    Identity id;
    if (link->procPartition()->isPseudo()) {
        return id;
    }
    const DeviceLink* disk = diskOf(link);
    if (disk == nullptr) {
        disk = link;  // a whole device tells of itself
    }
    const DiskFacts& facts = factsOf(disk);
    id.readOnly = atRest_.roFlag(link);
    id.rotational = facts.rotational;
    id.logicalSectorSize = facts.logicalSectorSize;
    id.physicalSectorSize = facts.physicalSectorSize;
    id.serial = facts.serial;

    for (const DiskBy* d : link->diskBys) {
        if (d->kind() != DiskBy::ById) {
            continue;
        }
        const bool wwn = d->alias().compare(0, 4, "wwn-") == 0;
        if (wwn && !id.wwn) {
            id.wwn = withoutPart(d->alias().substr(4));
        }
        if (!id.byId || (!wwn && id.byId->compare(0, 20, "/dev/disk/by-id/wwn-") == 0)) {
            id.byId = "/dev/disk/by-id/" + d->alias();  // a name that says what the device is, before a WWN
        }
    }
    if (!id.wwn) {
        id.wwn = wwidWwn(disk);
    }
    id.transport = facts.transport;

    if (const sal::sys::SignatureProbe* probe = atRest_.signatures(link)) {
        for (const sal::sys::Signature& s : probe->found) {
            if (s.usage == "partition table") {
                continue;
            }
            id.fsType = s.type;
            if (!s.uuid.empty()) {
                id.uuid = s.uuid;
            }
            if (!s.label.empty()) {
                id.label = s.label;
            }
            break;
        }
    }
    return id;
}

}  // namespace vessa::target::lin
