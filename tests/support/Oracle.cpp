#include "support/Oracle.h"

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

#include "lin/DeviceLink.h"
#include "lin/RunRecords.h"
#include "platform/Log.h"

namespace vessa::test::oracle {

using namespace vessa::target::lin;
using vessa::target::Host;
using vessa::target::Storage;

namespace {

// The oracle writes its lines as the run it stands in for, so that the two logs can be compared.
constexpr const char* kUnit = "lin/lin";
constexpr unsigned int kTimeout = 1;  // seconds, the inquiry timeout of a run without arguments

// Runs `reader(list, args...)` between its check line and its count line. A source that cannot be
// understood ends the oracle's run (the snapshots it is compared on have none).
template <class T, class R, class... A>
void readSource(const char* check, const char* tail, std::list<T*>& list, R reader, A&&... args) {
    VESSA_TRACE(kUnit, "GetStorage");
    VESSA_LOG << check;
    reader(list, std::forward<A>(args)...);
    VESSA_LOG << "Pulled " << list.size() << tail;
}

void cleanLinks(std::list<DeviceLink*>& links) {
    VESSA_TRACE(kUnit, "cleanLinks");
    std::list<DeviceLink*> removed;
    // `child` goes below `parent` in the relation `kind`, and leaves the roots.
    auto relate = [&removed](DeviceLink* parent, std::list<DeviceLink*>& kind, DeviceLink* child) {
        kind.push_back(child);
        child->parents.push_back(parent);
        removed.push_back(child);
    };
    for (DeviceLink* a : links) {
        for (DeviceLink* b : links) {
            if (a->isMpathParentOf(b)) {
                VESSA_LOG << a->name() << " is mPath dev for " << b->name();
                relate(a, a->mpathTargets, b);
            } else if (b->isMpathParentOf(a)) {
                VESSA_LOG << b->name() << " is mPath dev for " << a->name();
                relate(b, b->mpathTargets, a);
            } else if (b->isPartitionOf(a)) {
                VESSA_LOG << b->name() << " is partition of " << a->name();
                relate(a, a->partitions, b);
            } else if (b->isHolderOf(a)) {
                VESSA_LOG << b->name() << " is holder of " << a->name();
                relate(a, a->holders, b);
            }
        }
    }
    for (DeviceLink* gone : removed) {
        links.remove(gone);
    }
}

void makeUnique(DeviceLink* a, DeviceLink* b) {
    const DeviceLink::Visit visit(a, DeviceLink::Unique);
    if (!visit.entered()) {
        return;
    }
    VESSA_TRACE(kUnit, "makeUnique(LV, DL)");
    for (LogicalVolume* l : a->logicalVolumes) {
        VESSA_LOG << "Looking for " << l->name() << " (" << l->major() << ":" << l->minor() << ")";
        VESSA_LOG << b->logicalVolumes.size() << " LVs to check";
        for (LogicalVolume* m : b->logicalVolumes) {
            if (m->major() != l->major() || m->minor() != l->minor()) {
                continue;
            }
            VESSA_LOG << "!!!!!!!!!!!!!!!!!!!!!!!!!  FOUND A MATCH !!!!!!!!!!!!!!!!!!!!!!";
            if (m == l) {
                VESSA_LOG << "Same pointer";
                continue;
            }
            VESSA_LOG << "Unique pointers!";
            b->logicalVolumes.remove(m);
            b->logicalVolumes.push_back(l);
            break;
        }
    }
    for (auto [mine, theirs] :
         {std::pair(&a->partitions, &b->partitions), std::pair(&a->holders, &b->holders)}) {
        for (DeviceLink* p : *mine) {
            makeUnique(p, b);
            for (DeviceLink* q : *theirs) {
                makeUnique(p, q);
            }
        }
    }
}

// The items of one run so far, and what they were made of.
struct Made {
    Host* localHost;
    std::size_t base;  // the items the host had before
    std::list<Storage*> items;
    std::set<std::pair<int, int>> doneLogical;  // major and minor numbers
    std::list<std::string> doneMounts;
    int next() const { return static_cast<int>(base + items.size()); }
    ~Made() {
        for (Storage* s : items) {
            delete s;
        }
    }
};

bool addLogicalDevices(Made& made, DeviceLink* link, bool isChild) {
    const DeviceLink::Visit visit(link, DeviceLink::Logical);
    if (!visit.entered()) {
        return false;
    }
    VESSA_TRACE(kUnit, "addLogicalDevices");
    VESSA_LOG << "Adding logical devices for " << link->name();
    const auto logical = static_cast<Storage::storageType>(Storage::logicalStorageMask);
    bool added = false;
    for (DeviceLink* p : link->partitions) {
        added = addLogicalDevices(made, p, true) || added;
    }
    bool sawVolume = false;
    for (DeviceLink* h : link->holders) {
        for (LogicalVolume* l : h->logicalVolumes) {
            if (made.doneLogical.insert({l->major(), l->minor()}).second) {
                VESSA_LOG << "Adding LV: " << l->name();
                made.items.push_back(h->asStorage(l, logical, made.next(), kTimeout, made.localHost));
            }
            sawVolume = true;
        }
        const ProcPartition* hp = h->procPartition();
        if (!sawVolume && !made.doneLogical.count({hp->major(), hp->minor()})) {
            added = addLogicalDevices(made, h, true) || added;
        }
    }
    const ProcPartition* pp = link->procPartition();
    if (isChild && !sawVolume && !added && made.doneLogical.insert({pp->major(), pp->minor()}).second) {
        VESSA_LOG << "Adding partition: " << link->name();
        made.items.push_back(link->asStorage(logical, made.next(), kTimeout, made.localHost));
        added = true;
    }
    return added;
}

void addFileSystemDevices(Made& made, DeviceLink* link) {
    const DeviceLink::Visit visit(link, DeviceLink::FileSystems);
    if (!visit.entered()) {
        return;
    }
    for (const auto* below : {&link->partitions, &link->holders, &link->mpathTargets}) {
        for (DeviceLink* b : *below) {
            addFileSystemDevices(made, b);
        }
    }
    auto add = [&](const std::string& mountPoint, auto* entry) {
        VESSA_TRACE(kUnit, "addFileSystemDevices");
        VESSA_LOG << "Have we already done\"" << mountPoint << "\"";
        if (std::find(made.doneMounts.begin(), made.doneMounts.end(), mountPoint) != made.doneMounts.end()) {
            VESSA_LOG << "Looks like it";
            return;
        }
        VESSA_LOG << "Apparently not.";
        made.doneMounts.push_back(mountPoint);
        if (mountPoint.rfind("/proc/", 0) != 0 && mountPoint.rfind("/sys/", 0) != 0) {
            made.items.push_back(
                link->asStorage(entry, Storage::fileSystemStorage, made.next(), kTimeout, made.localHost));
        }
    };
    for (MTableEntry* m : link->mTableEntries) {
        if (m->flag()) {
            add(m->mountPoint(), m);
        }
    }
    for (FsTableEntry* f : link->fsTableEntries) {
        if (f->flag()) {
            add(f->mountPoint(), f);
        }
    }
}

}  // namespace

unsigned int getLocalStorage(Host* host, Storage::storageType type,
                             const std::list<std::string>& /*arguments*/, Host::callback /*progress*/) {
    VESSA_TRACE(kUnit, "GetStorage");
    std::unique_ptr<Host> localHost(Host::named("127.0.0.1", false));
    Host* lh = localHost.get();
    RunRecords r;
    readSource("CHECK /proc/partions", " items from /proc/partitions", r.procPartitions,
               ProcPartition::readProcPartitions);
    readSource("CHECK /sys/block", " items from /sys/block/...", r.sysBlocks, SysBlock::readSysFs,
               r.procPartitions, lh);
    readSource("CHECK dmsetup", " items from \"dmsetup ls --tree\"...", r.dmDevs, DmTreeDev::readDmTree, lh);
    readSource("CHECK pvdisplay", " items from pvdisplay...", r.physicalVolumes,
               PhysicalVolume::readPvDisplay, lh);
    readSource("CHECK lvdisplay", " items from lvdisplay...", r.logicalVolumes, LogicalVolume::readLvDisplay,
               lh);
    readSource("CHECK vgdisplay", " items from vgdisplay...", r.volumeGroups, VolumeGroup::readVgDisplay, lh);
    readSource("CHECK /etc/fstab", " entries from /etc/fstab...", r.fsTableEntries, FsTableEntry::readFsTab,
               lh);
    readSource("CHECK /etc/mtab", " entries from /etc/mtab...", r.mTableEntries, MTableEntry::readMTab, lh);
    readSource("CHECK /dev/disk/by-*", " links from /dev/disk/by-*", r.diskBys, DiskBy::readDisksBy, lh);

    // Every record of every source is offered to every link's matchers.
    for (ProcPartition* p : r.procPartitions) {
        r.allLinks.push_back(new DeviceLink(p, r.sysBlocks, r.dmDevs, r.physicalVolumes, r.logicalVolumes,
                                            r.volumeGroups, r.fsTableEntries, r.mTableEntries, r.diskBys));
    }
    std::list<DeviceLink*> links = r.allLinks;
    cleanLinks(links);
    {
        VESSA_TRACE(kUnit, "makeUnique(DevLinks)");
        for (DeviceLink* a : links) {
            for (DeviceLink* b : links) {
                makeUnique(a, b);
            }
        }
    }
    for (DeviceLink* link : links) {
        link->print(0);
    }

    Made made{lh, host->storage().size(), {}, {}, {}};
    if (type & Storage::discoveredBlockDevice) {
        int counter = 0;
        for (DeviceLink* link : links) {
            const std::string& n = link->name();
            if (n != ".cifs." && n != ".nfs." && n != ".fusefs.") {
                made.items.push_back(
                    link->asStorage(Storage::discoveredBlockDevice, counter++, kTimeout, lh));
            }
        }
    }
    if (type & Storage::logicalStorageMask) {
        for (DeviceLink* link : links) {
            addLogicalDevices(made, link, false);
        }
    }
    if (type & Storage::fileSystemStorage) {
        for (DeviceLink* link : links) {
            addFileSystemDevices(made, link);
        }
    }
    host->storage().splice(host->storage().end(), made.items);
    return static_cast<unsigned int>(host->storage().size());
}

}  // namespace vessa::test::oracle
