// A device link's exclusions and its conversion to storage items.
//
// Choices made where the rules leave room, with what a reader of the report needs in mind:
// - "accessType" is "1" for a logical request (type bits 2, 8, 16) and "2" otherwise.
// - A device that is not a device-mapper device is named by its node below /dev ("sda",
//   "cciss/c0d0", "mapper/mpatha" for a named multipath device), the way people name disks.
// - When "file" cannot be run, the device is not marked partitioned; the failure is logged. A device
//   holding a mounted file system is excluded by its mount anyway.
// - The base item made for a file-system item is freed once its size, exclusions and properties have
//   been taken.
#include "lin/DeviceLink.h"
#include "lin/DiskBy.h"
#include "lin/DmTreeDev.h"
#include "lin/FsTableEntry.h"
#include "lin/LogicalVolume.h"
#include "lin/MTableEntry.h"
#include "lin/PhysicalVolume.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
#include "lin/VolumeGroup.h"
#include "lin/common.h"
#include "platform/Log.h"
#include "platform/Str.h"
#include "target/Host.h"

namespace vessa::target::lin {

namespace {

constexpr const char* kUnit = "lin/DeviceLink.cpp";

bool startsWith(const std::string& s, const std::string& prefix) {
    return s.compare(0, prefix.size(), prefix) == 0;
}

std::string withPrefix(const std::string& prefix, const std::string& s) {
    return startsWith(s, prefix) ? s : prefix + s;
}

}  // namespace

void DeviceLink::getExclusions(Storage::exclusions& exclusions, bool fromChildren, bool fromHolders) {
    const Visit visit(this, Exclusions);
    if (!visit.entered()) {
        return;
    }
    VESSA_TRACE(kUnit, "getExclusions");
    VESSA_LOG << "Getting exclusions for " << name();
    if (fromChildren) {
        for (DmTreeDev* d : dmDevs) {
            d->getExclusions(exclusions, true, fromHolders);
        }
        for (DeviceLink* p : partitions) {
            p->getExclusions(exclusions, true, fromHolders);
        }
        for (DeviceLink* t : mpathTargets) {
            t->getExclusions(exclusions, true, fromHolders);
        }
    }
    if (fromHolders) {
        for (VolumeGroup* vg : volumeGroups) {
            vg->getExclusions(exclusions);
        }
        for (DeviceLink* h : holders) {
            h->getExclusions(exclusions, fromChildren, true);
        }
    }
    procPartition_->getExclusions(exclusions);
    for (SysBlock* s : sysBlocks) {
        s->getExclusions(exclusions);
    }
    for (PhysicalVolume* pv : physicalVolumes) {
        pv->getExclusions(exclusions);
    }
    for (LogicalVolume* lv : logicalVolumes) {
        lv->getExclusions(exclusions);
    }
    for (DiskBy* a : diskBys) {
        a->getExclusions(exclusions);
    }
    if (!partitions.empty()) {
        exclusions |= Storage::kPartitioned;
    }
    if (!volumeGroups.empty()) {
        exclusions |= Storage::kVolumeGroup;
    }
    for (FsTableEntry* f : fsTableEntries) {
        f->getExclusions(exclusions);
    }
    for (MTableEntry* m : mTableEntries) {
        m->getExclusions(exclusions);
    }
    VESSA_LOG << "Exclusions for " << name() << " " << exclusions;
}

std::string DeviceLink::devicePath() const {
    for (const DmTreeDev* d : dmDevs) {
        if (d->multipath() && d->name() != "device" && !startsWith(d->name(), "dm-")) {
            return "/dev/mapper/" + d->name();
        }
    }
    return "/dev/" + name();
}

Storage* DeviceLink::asStorage(Storage::storageType type, int index, unsigned int inquiryTimeout,
                               Host* /*host*/) {
    VESSA_TRACE(kUnit, "asStorage");
    const std::string path = devicePath();
    std::map<std::string, Property> properties;
    addProperties("", properties);

    Storage::exclusions exclusions = 0;
    getExclusions(exclusions, true, true);

    if ((type & Storage::physicalStorage) && !(exclusions & Storage::kPartitioned)) {
        // A file system written straight onto the device, without a partition table, makes it as
        // unusable for testing as a partitioned one.
        std::string output;
        const int status = contentTest(path, output);
        if (status == 255) {
            VESSA_LOG << "file -s " << path << " could not be run";
        } else if (output.find("filesystem") != std::string::npos) {
            exclusions |= Storage::kPartitioned;
        }
    }

    std::string inquiry;
    getInquiry(inquiry, inquiryTimeout);

    std::string scsiAddress;
    getScsiAddress(name(), scsiAddress);
    properties.insert_or_assign("scsiString", standard::scsiString.make(scsiAddress));
    properties.insert_or_assign("inquiry", standard::inquiry.make(inquiry));
    properties.insert_or_assign(
        "size", Property("size", util::str::from(procPartition_->blocks()), standard::size.displayName,
                         "Size of the device in blocks", standard::size.category));
    properties.insert_or_assign("accessType",
                                standard::accessType.make((type & Storage::logicalStorageMask) ? "1" : "2"));

    std::string itemName = startsWith(path, "/dev/") ? path.substr(5) : path;
    if (path.find("/dev/dm-") != std::string::npos) {
        for (const DmTreeDev* d : dmDevs) {
            if (d->major() == procPartition_->major() && d->minor() == procPartition_->minor()) {
                itemName = withPrefix("/dev/mapper/", d->name());
                break;
            }
        }
    }
    if (type & Storage::fileSystemStorage) {
        exclusions &= ~Storage::kPartitioned;
    }
    const unsigned long long size = static_cast<unsigned long long>(procPartition_->blocks()) << 10;
    return new Storage(type, itemName, path, size, index, inquiry, exclusions, std::move(properties));
}

Storage* DeviceLink::asStorage(LogicalVolume* lv, Storage::storageType type, int index,
                               unsigned int inquiryTimeout, Host* host) {
    VESSA_TRACE(kUnit, "asStorage(LV)");
    VESSA_LOG << "Getting " << lv->name() << " as storage";
    VESSA_LOG << "Base storage is coming from " << name();
    Storage* base = asStorage(type, index, inquiryTimeout, host);

    std::string path = withPrefix("/dev/", lv->deviceName());
    if (!host->existsFSItem(path, vessa::hax::FSItem::any)) {
        std::string candidate;
        for (const DmTreeDev* d : dmDevs) {
            if (d->major() == lv->major() && d->minor() == lv->minor()) {
                candidate = withPrefix("/dev/mapper/", d->name());
                break;
            }
        }
        if (!candidate.empty() && host->existsFSItem(candidate, vessa::hax::FSItem::any)) {
            path = candidate;
        } else if (host->existsFSItem(withPrefix("/dev/", name()), vessa::hax::FSItem::any)) {
            path = withPrefix("/dev/", name());
        } else {
            path = withPrefix("/dev/mapper/", name());
        }
    }
    const std::string itemName = startsWith(path, "/dev/") ? path.substr(5) : path;
    Storage* item = new Storage(type, itemName, path, base->size(), index, base->inquiry(),
                                base->exclusionsList(), std::move(base->properties()));
    delete base;
    return item;
}

Storage* DeviceLink::fileSystemStorage(const std::string& device, const std::string& mountPoint,
                                       const char* trace, Storage::storageType type, int index,
                                       unsigned int inquiryTimeout, Host* host) {
    VESSA_TRACE(kUnit, trace);
    VESSA_LOG << "Getting " << device << " as storage";
    VESSA_LOG << "Base storage is coming from " << name();
    Storage* base = asStorage(type, index, inquiryTimeout, host);
    std::string itemName = device;
    if (startsWith(itemName, "/dev/")) {
        itemName.erase(0, 5);
    }
    if (startsWith(itemName, "mapper/")) {
        itemName.erase(0, 7);
    }
    Storage* item = new Storage(type, itemName, mountPoint + "/", base->size(), index, base->inquiry(),
                                base->exclusionsList(), std::move(base->properties()));
    delete base;
    return item;
}

Storage* DeviceLink::asStorage(FsTableEntry* entry, Storage::storageType type, int index,
                               unsigned int inquiryTimeout, Host* host) {
    return fileSystemStorage(entry->deviceName(), entry->mountPoint(), "asStorage(FsTableEntry)", type, index,
                             inquiryTimeout, host);
}

Storage* DeviceLink::asStorage(MTableEntry* entry, Storage::storageType type, int index,
                               unsigned int inquiryTimeout, Host* host) {
    return fileSystemStorage(entry->deviceName(), entry->mountPoint(), "asStorage(MTableEntry)", type, index,
                             inquiryTimeout, host);
}

}  // namespace vessa::target::lin
