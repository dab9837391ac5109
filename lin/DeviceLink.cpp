#include "lin/DeviceLink.h"

#include <cctype>

#include "lin/DiskBy.h"
#include "lin/DmTreeDev.h"
#include "lin/FsTableEntry.h"
#include "lin/LogicalVolume.h"
#include "lin/MTableEntry.h"
#include "lin/PhysicalVolume.h"
#include "lin/ProcPartition.h"
#include "lin/RecordIndex.h"
#include "lin/SysBlock.h"
#include "lin/VolumeGroup.h"
#include "lin/common.h"
#include "platform/Log.h"

namespace vessa::target::lin {

namespace {

bool startsWith(const std::string& s, const std::string& prefix) {
    return s.compare(0, prefix.size(), prefix) == 0;
}

bool allDigits(const std::string& s, std::string::size_type from) {
    if (from >= s.size()) {
        return false;
    }
    for (std::string::size_type i = from; i < s.size(); ++i) {
        if (!std::isdigit(static_cast<unsigned char>(s[i]))) {
            return false;
        }
    }
    return true;
}

bool isBlank(const std::string& s) {
    return s.find_first_not_of(' ') == std::string::npos;
}

template <class T, class List>
void collect(DeviceLink* link, const List& source, std::list<T*>& into) {
    for (T* record : source) {
        if (T* hit = link->matchProcPart(record)) {
            into.push_back(hit);
        }
    }
}

}  // namespace

DeviceLink::DeviceLink(ProcPartition* procPartition, std::list<SysBlock*>& sysBlockList,
                       std::list<DmTreeDev*>& dmDevList, std::list<PhysicalVolume*>& pvList,
                       std::list<LogicalVolume*>& lvList, std::list<VolumeGroup*>& vgList,
                       std::list<FsTableEntry*>& fsList, std::list<MTableEntry*>& mList,
                       std::list<DiskBy*>& diskByList)
    : procPartition_(procPartition) {
    collect(this, sysBlockList, sysBlocks);
    collect(this, dmDevList, dmDevs);
    collect(this, pvList, physicalVolumes);
    collect(this, lvList, logicalVolumes);
    collect(this, vgList, volumeGroups);
    collect(this, diskByList, diskBys);
    collect(this, fsList, fsTableEntries);
    collect(this, mList, mTableEntries);
}

DeviceLink::DeviceLink(ProcPartition* procPartition, const RecordIndex& index)
    : procPartition_(procPartition) {
    const int major = procPartition->major();
    const int minor = procPartition->minor();
    collect(this, index.sysBlocks(major, minor), sysBlocks);
    collect(this, index.dmTrees(major, minor), dmDevs);
    collect(this, index.physicalVolumes(name()), physicalVolumes);
    collect(this, index.logicalVolumes(major, minor), logicalVolumes);
    collect(this, index.volumeGroups(*this), volumeGroups);
    collect(this, index.diskBys(name()), diskBys);
    collect(this, index.fsTableEntries(*this), fsTableEntries);
    collect(this, index.mTableEntries(*this), mTableEntries);
}

const std::string& DeviceLink::name() const {
    return procPartition_->name();
}

SysBlock* DeviceLink::matchProcPart(SysBlock* s) {
    if (s->major() == procPartition_->major() && s->minor() == procPartition_->minor()) {
        return s;
    }
    for (SysBlock* p : s->partitions()) {
        if (p->major() == procPartition_->major() && p->minor() == procPartition_->minor()) {
            return p;
        }
    }
    return nullptr;
}

DmTreeDev* DeviceLink::matchProcPart(DmTreeDev* d) {
    if (d->major() == procPartition_->major() && d->minor() == procPartition_->minor()) {
        if (d->name() == "device") {
            d->setName(procPartition_->name());
        }
        return d;
    }
    for (DmTreeDev* child : d->children()) {
        if (DmTreeDev* hit = matchProcPart(child)) {
            return hit;
        }
    }
    return nullptr;
}

PhysicalVolume* DeviceLink::matchProcPart(PhysicalVolume* v) {
    const std::string& n = v->name();
    if (n == name() || (startsWith(n, "mapper/") && n.substr(7) == name())) {
        return v;
    }
    return nullptr;
}

LogicalVolume* DeviceLink::matchProcPart(LogicalVolume* l) {
    return l->major() == procPartition_->major() && l->minor() == procPartition_->minor() ? l : nullptr;
}

VolumeGroup* DeviceLink::matchProcPart(VolumeGroup* g) {
    for (const PhysicalVolume* pv : physicalVolumes) {
        if (pv->vgName() == g->name()) {
            return g;
        }
    }
    for (const LogicalVolume* lv : logicalVolumes) {
        if (lv->vgName() == g->name()) {
            return g;
        }
    }
    return nullptr;
}

DiskBy* DeviceLink::matchProcPart(DiskBy* a) {
    std::string target = a->target();
    if (startsWith(target, "/dev/")) {
        target.erase(0, 5);
    }
    return target == name() ? a : nullptr;
}

bool DeviceLink::matchesDevPath(const std::string& device) const {
    if (!startsWith(device, "/dev/")) {
        return false;
    }
    const std::string rest = device.substr(5);
    if (rest == name()) {
        return true;
    }
    for (const SysBlock* s : sysBlocks) {
        if (rest == s->name()) {
            return true;
        }
    }
    for (const DmTreeDev* d : dmDevs) {
        const bool strip = startsWith(rest, "mapper/") && !startsWith(d->name(), "mapper/");
        if ((strip ? rest.substr(7) : rest) == d->name()) {
            return true;
        }
    }
    for (const PhysicalVolume* pv : physicalVolumes) {
        if (rest == pv->name()) {
            return true;
        }
    }
    for (const LogicalVolume* lv : logicalVolumes) {
        if (rest == lv->deviceName()) {
            return true;
        }
    }
    for (const VolumeGroup* vg : volumeGroups) {
        if (rest == vg->name()) {
            return true;
        }
    }
    return false;
}

std::string DeviceLink::configuredDevice(const std::string& device) {
    std::string d = device;
    if (startsWith(d, "/dev/disk/by-")) {
        if (d.find("/by-id/") != std::string::npos) {
            d.replace(0, 16, "ID=");
        } else if (d.find("/by-label/") != std::string::npos) {
            d.replace(0, 19, "LABEL=");
        } else if (d.find("/by-path/") != std::string::npos) {
            d.replace(0, 18, "PATH=");
        } else if (d.find("/by-uuid/") != std::string::npos) {
            d.replace(0, 18, "UUID=");
        }
    }
    return d;
}

bool DeviceLink::aliasForm(const std::string& device, int& kind, std::string& value) {
    // The label form is compared from its eighth character, one past the end of "LABEL="; that is how
    // configured labels have always been matched, and it is kept.
    static const struct {
        const char* prefix;
        int kind;
        std::string::size_type from;
    } forms[] = {{"ID=", DiskBy::ById, 3},
                 {"LABEL=", DiskBy::ByLabel, 7},
                 {"PATH=", DiskBy::ByPath, 5},
                 {"UUID=", DiskBy::ByUuid, 5}};
    for (const auto& form : forms) {
        if (startsWith(device, form.prefix)) {
            kind = form.kind;
            value = device.size() > form.from ? device.substr(form.from) : std::string();
            return true;
        }
    }
    return false;
}

FsTableEntry* DeviceLink::matchProcPart(FsTableEntry* f) {
    const std::string device = configuredDevice(f->deviceName());
    if (startsWith(device, "/dev/")) {
        return matchesDevPath(device) ? f : nullptr;
    }
    int kind = 0;
    std::string value;
    if (!aliasForm(device, kind, value)) {
        return nullptr;
    }
    for (const DiskBy* alias : diskBys) {
        if (alias->kind() == kind && alias->alias() == value) {
            return f;
        }
    }
    return nullptr;
}

MTableEntry* DeviceLink::matchProcPart(MTableEntry* m) {
    const std::string& type = m->fileSystemType();
    const std::string& n = name();
    if ((n == ".cifs." && startsWith(type, "cifs")) || (n == ".nfs." && startsWith(type, "nfs")) ||
        (n == ".vmhgfs." && startsWith(type, "vmhgfs")) || (n == ".fusefs." && startsWith(type, "fuse."))) {
        return m;
    }
    return matchesDevPath(m->deviceName()) ? m : nullptr;
}

bool DeviceLink::isPartitionOf(DeviceLink* other) {
    if (other == this) {
        return false;
    }
    for (const SysBlock* s : other->sysBlocks) {
        for (const SysBlock* p : s->partitions()) {
            if (p->name() == name()) {
                return true;
            }
        }
    }
    const std::string& p = name();
    const std::string& d = other->name();
    if (d.size() >= p.size() || !startsWith(p, d)) {
        return false;
    }
    if ((startsWith(p, "sd") || startsWith(p, "hd")) && allDigits(p, d.size())) {
        return true;
    }
    return startsWith(p, "cciss") && p[d.size()] == 'p' && allDigits(p, d.size() + 1);
}

bool DeviceLink::isHolderOf(DeviceLink* other) {
    if (other == this) {
        return false;
    }
    for (DmTreeDev* node : other->dmDevs) {
        if (findInParents(node)) {
            return true;
        }
    }
    return false;
}

bool DeviceLink::isMpathParentOf(DeviceLink* other) {
    for (const DmTreeDev* d : dmDevs) {
        if (!d->multipath()) {
            continue;
        }
        for (const DmTreeDev* child : d->children()) {
            if (child->major() == other->procPartition_->major() &&
                child->minor() == other->procPartition_->minor()) {
                return true;
            }
        }
    }
    return false;
}

bool DeviceLink::findInParents(DmTreeDev* node) {
    for (const DmTreeDev* parent : node->parents()) {
        if (parent->major() == procPartition_->major() && parent->minor() == procPartition_->minor()) {
            return true;
        }
    }
    return false;
}

void DeviceLink::getInquiry(std::string& inquiry, unsigned int timeout) {
    const Visit visit(this, Inquiry);
    if (!visit.entered()) {
        return;
    }
    // A device that does not answer yields 28 blanks, which count as no answer: the question goes on
    // to the device beneath (the disk of a partition, the paths of a multipath device).
    lin::getInquiry(name(), inquiry, timeout);
    if (!isBlank(inquiry)) {
        return;
    }
    for (DeviceLink* parent : parents) {
        std::string fromParent;
        parent->getInquiry(fromParent, timeout);
        if (!isBlank(fromParent)) {
            inquiry = fromParent;
            return;
        }
    }
}

void DeviceLink::addProperties(const std::string& prefix, std::map<std::string, Property>& properties) {
    const Visit visit(this, Properties);
    if (!visit.entered()) {
        return;
    }
    procPartition_->addProperties(prefix, properties);
    for (SysBlock* s : sysBlocks) {
        s->addProperties(prefix, properties);
    }
    for (DmTreeDev* d : dmDevs) {
        d->addProperties(prefix, properties);
    }
    for (PhysicalVolume* pv : physicalVolumes) {
        pv->addProperties(prefix, properties);
    }
    for (LogicalVolume* lv : logicalVolumes) {
        lv->addProperties(prefix, properties);
    }
    for (VolumeGroup* vg : volumeGroups) {
        vg->addProperties(prefix, properties);
    }
    // Each alias gets a key of its own: several aliases of one kind must not overwrite each other.
    for (DiskBy* alias : diskBys) {
        alias->addProperties(": " + prefix + alias->alias(), properties);
    }
    for (FsTableEntry* f : fsTableEntries) {
        f->addProperties(prefix, properties);
    }
    for (MTableEntry* m : mTableEntries) {
        m->addProperties(prefix, properties);
    }
    for (DeviceLink* p : partitions) {
        p->addProperties("Partition ", properties);
    }
    for (DeviceLink* h : holders) {
        h->addProperties("Holder ", properties);
    }
    for (DeviceLink* t : mpathTargets) {
        t->addProperties("Multipath Target ", properties);
    }
}

}  // namespace vessa::target::lin
