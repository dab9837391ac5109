#include "support/Oracle.h"

#include <algorithm>
#include <map>
#include <memory>

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
#include "platform/Exception.h"
#include "platform/Log.h"
#include "platform/Str.h"

namespace vessa::test::oracle {

using namespace vessa::target::lin;
using vessa::target::Host;
using vessa::target::Storage;

namespace {

// The oracle writes its lines as the run it stands in for, so that the two logs can be compared.
constexpr const char* kUnit = "lin/lin";

typedef std::map<std::uint32_t, std::list<std::uint32_t>> DoneLogical;

struct Records {
    std::list<ProcPartition*> procPartitions;
    std::list<SysBlock*> sysBlocks;
    std::list<DmTreeDev*> dmDevs;
    std::list<PhysicalVolume*> physicalVolumes;
    std::list<LogicalVolume*> logicalVolumes;
    std::list<VolumeGroup*> volumeGroups;
    std::list<FsTableEntry*> fsTableEntries;
    std::list<MTableEntry*> mTableEntries;
    std::list<DiskBy*> diskBys;
    std::list<DeviceLink*> links;

    static void release(SysBlock* s) {
        for (SysBlock* p : s->partitions()) {
            release(p);
        }
        for (SysBlock* h : s->holders()) {
            delete h;
        }
        for (SysBlock* sl : s->slaves()) {
            delete sl;
        }
        delete s;
    }
    static void release(DmTreeDev* d) {
        for (DmTreeDev* c : d->children()) {
            release(c);
        }
        delete d;
    }
    template <class T>
    static void release(T* t) {
        delete t;
    }
    template <class T>
    static void freeAll(std::list<T*>& list) {
        for (T* t : list) {
            release(t);
        }
    }
    ~Records() {
        freeAll(links);
        freeAll(procPartitions);
        freeAll(sysBlocks);
        freeAll(dmDevs);
        freeAll(physicalVolumes);
        freeAll(logicalVolumes);
        freeAll(volumeGroups);
        freeAll(fsTableEntries);
        freeAll(mTableEntries);
        freeAll(diskBys);
    }
};

template <class T, class F>
void readSource(const char* check, const char* tail, const char* source, std::list<T*>& list, F reader) {
    VESSA_TRACE(kUnit, "GetStorage");
    VESSA_LOG << check;
    try {
        reader(list);
    } catch (const vessa::Exception& e) {
        VESSA_LOG << e.typeName() << " because " << e.why() << " ("
                  << sal::err::asString(e.code(), e.domain()) << ")";
        throw vessa::Exception(std::string("reading ") + source + ": " + e.why(), e.code(), e.domain());
    }
    std::size_t count = 0;
    for (auto it = list.begin(); it != list.end(); ++it) {
        ++count;
    }
    VESSA_LOG << "Pulled " << count << tail;
}

template <class T>
void offer(DeviceLink* link, std::list<T*>& records, std::list<T*>& into) {
    for (T* record : records) {
        if (T* hit = link->matchProcPart(record)) {
            into.push_back(hit);
        }
    }
}

// A link made empty, then offered every record of every source in the order the matchers rely on.
DeviceLink* makeLink(ProcPartition* pp, Records& r) {
    std::list<SysBlock*> s;
    std::list<DmTreeDev*> d;
    std::list<PhysicalVolume*> pv;
    std::list<LogicalVolume*> lv;
    std::list<VolumeGroup*> vg;
    std::list<FsTableEntry*> fs;
    std::list<MTableEntry*> mt;
    std::list<DiskBy*> by;
    auto* link = new DeviceLink(pp, s, d, pv, lv, vg, fs, mt, by);
    offer(link, r.sysBlocks, link->sysBlocks);
    offer(link, r.dmDevs, link->dmDevs);
    offer(link, r.physicalVolumes, link->physicalVolumes);
    offer(link, r.logicalVolumes, link->logicalVolumes);
    offer(link, r.volumeGroups, link->volumeGroups);
    offer(link, r.diskBys, link->diskBys);
    offer(link, r.fsTableEntries, link->fsTableEntries);
    offer(link, r.mTableEntries, link->mTableEntries);
    return link;
}

void cleanLinks(std::list<DeviceLink*>& links) {
    VESSA_TRACE(kUnit, "cleanLinks");
    std::list<DeviceLink*> removed;
    for (DeviceLink* a : links) {
        for (DeviceLink* b : links) {
            if (a->isMpathParentOf(b)) {
                VESSA_LOG << a->name() << " is mPath dev for " << b->name();
                a->mpathTargets.push_back(b);
                b->parents.push_back(a);
                removed.push_back(b);
            } else if (b->isMpathParentOf(a)) {
                VESSA_LOG << b->name() << " is mPath dev for " << a->name();
                b->mpathTargets.push_back(a);
                a->parents.push_back(b);
                removed.push_back(a);
            } else if (b->isPartitionOf(a)) {
                VESSA_LOG << b->name() << " is partition of " << a->name();
                a->partitions.push_back(b);
                b->parents.push_back(a);
                removed.push_back(b);
            } else if (b->isHolderOf(a)) {
                VESSA_LOG << b->name() << " is holder of " << a->name();
                a->holders.push_back(b);
                b->parents.push_back(a);
                removed.push_back(b);
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
    for (DeviceLink* p : a->partitions) {
        makeUnique(p, b);
        for (DeviceLink* q : b->partitions) {
            makeUnique(p, q);
        }
    }
    for (DeviceLink* h : a->holders) {
        makeUnique(h, b);
        for (DeviceLink* g : b->holders) {
            makeUnique(h, g);
        }
    }
}

bool isDone(DoneLogical& done, int major, int minor) {
    const std::list<std::uint32_t>& minors = done[static_cast<std::uint32_t>(major)];
    return std::find(minors.begin(), minors.end(), static_cast<std::uint32_t>(minor)) != minors.end();
}

void markDone(DoneLogical& done, int major, int minor) {
    done[static_cast<std::uint32_t>(major)].push_back(static_cast<std::uint32_t>(minor));
}

int nextIndex(std::size_t base, const std::list<Storage*>& made) {
    return static_cast<int>(base + made.size());
}

bool addLogicalDevices(std::list<Storage*>& made, std::size_t base, Host* localHost, DeviceLink* link,
                       DoneLogical& done, unsigned int timeout, bool isChild) {
    const DeviceLink::Visit visit(link, DeviceLink::Logical);
    if (!visit.entered()) {
        return false;
    }
    VESSA_TRACE(kUnit, "addLogicalDevices");
    VESSA_LOG << "Adding logical devices for " << link->name();
    const auto logical = static_cast<Storage::storageType>(Storage::logicalStorageMask);
    bool added = false;
    for (DeviceLink* p : link->partitions) {
        added = addLogicalDevices(made, base, localHost, p, done, timeout, true) || added;
    }
    bool sawVolume = false;
    for (DeviceLink* h : link->holders) {
        for (LogicalVolume* l : h->logicalVolumes) {
            if (!isDone(done, l->major(), l->minor())) {
                VESSA_LOG << "Adding LV: " << l->name();
                markDone(done, l->major(), l->minor());
                made.push_back(h->asStorage(l, logical, nextIndex(base, made), timeout, localHost));
            }
            sawVolume = true;
        }
        const ProcPartition* hp = h->procPartition();
        if (!sawVolume && !isDone(done, hp->major(), hp->minor())) {
            added = addLogicalDevices(made, base, localHost, h, done, timeout, true) || added;
        }
    }
    const ProcPartition* pp = link->procPartition();
    if (isChild && !sawVolume && !added && !isDone(done, pp->major(), pp->minor())) {
        markDone(done, pp->major(), pp->minor());
        VESSA_LOG << "Adding partition: " << link->name();
        made.push_back(link->asStorage(logical, nextIndex(base, made), timeout, localHost));
        added = true;
    }
    return added;
}

void addFileSystemDevices(std::list<Storage*>& made, std::size_t base, Host* localHost, DeviceLink* link,
                          std::list<std::string>& doneMounts, unsigned int timeout) {
    const DeviceLink::Visit visit(link, DeviceLink::FileSystems);
    if (!visit.entered()) {
        return;
    }
    for (DeviceLink* p : link->partitions) {
        addFileSystemDevices(made, base, localHost, p, doneMounts, timeout);
    }
    for (DeviceLink* h : link->holders) {
        addFileSystemDevices(made, base, localHost, h, doneMounts, timeout);
    }
    for (DeviceLink* t : link->mpathTargets) {
        addFileSystemDevices(made, base, localHost, t, doneMounts, timeout);
    }
    auto add = [&](const std::string& mountPoint, auto* entry) {
        VESSA_TRACE(kUnit, "addFileSystemDevices");
        VESSA_LOG << "Have we already done\"" << mountPoint << "\"";
        if (std::find(doneMounts.begin(), doneMounts.end(), mountPoint) != doneMounts.end()) {
            VESSA_LOG << "Looks like it";
            return;
        }
        VESSA_LOG << "Apparently not.";
        doneMounts.push_back(mountPoint);
        if (mountPoint.rfind("/proc/", 0) != 0 && mountPoint.rfind("/sys/", 0) != 0) {
            made.push_back(link->asStorage(entry, Storage::fileSystemStorage, nextIndex(base, made), timeout,
                                           localHost));
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

unsigned int getLocalStorage(Host* host, Storage::storageType type, const std::list<std::string>& arguments,
                             Host::callback /*progress*/) {
    unsigned int timeout = 1;
    for (const std::string& a : arguments) {
        if (a.size() > 2 && (a[1] == 'j' || a[1] == 'J')) {
            util::str::to(timeout, a.substr(2));
        }
    }
    return GetStorage(host, type, timeout);
}

std::uint32_t GetStorage(Host* host, Storage::storageType type, unsigned int inquiryTimeout) {
    VESSA_TRACE(kUnit, "GetStorage");
    std::unique_ptr<Host> localHost(Host::named("127.0.0.1", false));
    Host* lh = localHost.get();
    Records r;
    readSource("CHECK /proc/partions", " items from /proc/partitions", "/proc/partitions", r.procPartitions,
               [](auto& l) { ProcPartition::readProcPartitions(l); });
    readSource("CHECK /sys/block", " items from /sys/block/...", "/sys/block", r.sysBlocks,
               [&](auto& l) { SysBlock::readSysFs(l, r.procPartitions, lh); });
    readSource("CHECK dmsetup", " items from \"dmsetup ls --tree\"...", "dmsetup", r.dmDevs,
               [&](auto& l) { DmTreeDev::readDmTree(l, lh); });
    readSource("CHECK pvdisplay", " items from pvdisplay...", "pvdisplay", r.physicalVolumes,
               [&](auto& l) { PhysicalVolume::readPvDisplay(l, lh); });
    readSource("CHECK lvdisplay", " items from lvdisplay...", "lvdisplay", r.logicalVolumes,
               [&](auto& l) { LogicalVolume::readLvDisplay(l, lh); });
    readSource("CHECK vgdisplay", " items from vgdisplay...", "vgdisplay", r.volumeGroups,
               [&](auto& l) { VolumeGroup::readVgDisplay(l, lh); });
    readSource("CHECK /etc/fstab", " entries from /etc/fstab...", "/etc/fstab", r.fsTableEntries,
               [&](auto& l) { FsTableEntry::readFsTab(l, lh); });
    readSource("CHECK /etc/mtab", " entries from /etc/mtab...", "/etc/mtab", r.mTableEntries,
               [&](auto& l) { MTableEntry::readMTab(l, lh); });
    readSource("CHECK /dev/disk/by-*", " links from /dev/disk/by-*", "/dev/disk/by-*", r.diskBys,
               [&](auto& l) { DiskBy::readDisksBy(l, lh); });

    for (ProcPartition* p : r.procPartitions) {
        r.links.push_back(makeLink(p, r));
    }
    std::list<DeviceLink*> links = r.links;
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

    std::list<Storage*> made;
    const std::size_t base = host->storage().size();
    try {
        if (type & Storage::discoveredBlockDevice) {
            int counter = 0;
            for (DeviceLink* link : links) {
                const std::string& n = link->name();
                if (n != ".cifs." && n != ".nfs." && n != ".fusefs.") {
                    made.push_back(
                        link->asStorage(Storage::discoveredBlockDevice, counter++, inquiryTimeout, lh));
                }
            }
        }
        if (type & Storage::logicalStorageMask) {
            DoneLogical done;
            for (DeviceLink* link : links) {
                addLogicalDevices(made, base, lh, link, done, inquiryTimeout, false);
            }
        }
        if (type & Storage::fileSystemStorage) {
            std::list<std::string> doneMounts;
            for (DeviceLink* link : links) {
                addFileSystemDevices(made, base, lh, link, doneMounts, inquiryTimeout);
            }
        }
    } catch (...) {
        for (Storage* s : made) {
            delete s;
        }
        throw;
    }
    host->storage().splice(host->storage().end(), made);
    return static_cast<std::uint32_t>(host->storage().size());
}

}  // namespace vessa::test::oracle
