#include "lin/lin.h"

#include <algorithm>
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
#include "target/Host.h"

namespace vessa::target::lin {

namespace {

constexpr const char* kUnit = "lin/lin";

// Every record and link of one run. The links point into the records, so both live until the run's
// items are made; the items are self-contained copies, and the run frees everything on its way out.
struct RunRecords {
    std::list<ProcPartition*> procPartitions;
    std::list<SysBlock*> sysBlocks;
    std::list<DmTreeDev*> dmDevs;
    std::list<PhysicalVolume*> physicalVolumes;
    std::list<LogicalVolume*> logicalVolumes;
    std::list<VolumeGroup*> volumeGroups;
    std::list<FsTableEntry*> fsTableEntries;
    std::list<MTableEntry*> mTableEntries;
    std::list<DiskBy*> diskBys;
    std::list<DeviceLink*> allLinks;

    static void freeSysBlock(SysBlock* s) {
        for (SysBlock* p : s->partitions()) {
            freeSysBlock(p);
        }
        for (SysBlock* h : s->holders()) {
            delete h;
        }
        for (SysBlock* sl : s->slaves()) {
            delete sl;
        }
        delete s;
    }
    static void freeDmTree(DmTreeDev* d) {
        for (DmTreeDev* c : d->children()) {
            freeDmTree(c);
        }
        delete d;
    }
    template <class T>
    static void freeAll(std::list<T*>& list) {
        for (T* t : list) {
            delete t;
        }
    }
    ~RunRecords() {
        freeAll(allLinks);
        freeAll(procPartitions);
        for (SysBlock* s : sysBlocks) {
            freeSysBlock(s);
        }
        for (DmTreeDev* d : dmDevs) {
            freeDmTree(d);
        }
        freeAll(physicalVolumes);
        freeAll(logicalVolumes);
        freeAll(volumeGroups);
        freeAll(fsTableEntries);
        freeAll(mTableEntries);
        freeAll(diskBys);
    }
};

// Runs one reader with its check line and its count line. A reader that throws ends the run; the
// exception is logged and passed on with the source named.
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

bool isDone(const std::map<std::uint32_t, std::list<std::uint32_t>>& done, int major, int minor) {
    auto it = done.find(static_cast<std::uint32_t>(major));
    return it != done.end() && std::find(it->second.begin(), it->second.end(),
                                         static_cast<std::uint32_t>(minor)) != it->second.end();
}

void makeUniquePair(DeviceLink* a, DeviceLink* b) {
    VESSA_TRACE(kUnit, "makeUnique(LV, DL)");
    for (LogicalVolume* l : a->logicalVolumes) {
        VESSA_LOG << "Looking for " << l->name() << " (" << l->major() << ":" << l->minor() << ")";
        VESSA_LOG << b->logicalVolumes.size() << " LVs to check";
        for (auto it = b->logicalVolumes.begin(); it != b->logicalVolumes.end(); ++it) {
            LogicalVolume* m = *it;
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
        makeUniquePair(p, b);
        for (DeviceLink* q : b->partitions) {
            makeUniquePair(p, q);
        }
    }
    for (DeviceLink* h : a->holders) {
        makeUniquePair(h, b);
        for (DeviceLink* g : b->holders) {
            makeUniquePair(h, g);
        }
    }
}

}  // namespace

unsigned int getLocalStorage(Host* host, Storage::storageType type, const std::list<std::string>& arguments,
                             Progress progress) {
    unsigned int timeout = 1;
    for (const std::string& a : arguments) {
        if (a.size() > 2 && (a[1] == 'j' || a[1] == 'J')) {
            util::str::to(timeout, a.substr(2));
        }
    }
    return GetStorage(host, type, timeout, progress);
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
    for (DeviceLink* r : removed) {
        links.remove(r);
    }
}

void makeUnique(std::list<DeviceLink*>& links) {
    VESSA_TRACE(kUnit, "makeUnique(DevLinks)");
    for (DeviceLink* a : links) {
        for (DeviceLink* b : links) {
            makeUniquePair(a, b);
        }
    }
}

bool addLogicalDevices(std::list<Storage*>& out, std::size_t indexBase, Host* localHost, DeviceLink* link,
                       std::map<std::uint32_t, std::list<std::uint32_t>>& doneLogical,
                       unsigned int inquiryTimeout, bool isChild) {
    VESSA_TRACE(kUnit, "addLogicalDevices");
    VESSA_LOG << "Adding logical devices for " << link->name();
    bool added = false;
    for (DeviceLink* p : link->partitions) {
        if (addLogicalDevices(out, indexBase, localHost, p, doneLogical, inquiryTimeout, true)) {
            added = true;
        }
    }
    bool sawVolume = false;
    for (DeviceLink* h : link->holders) {
        for (LogicalVolume* l : h->logicalVolumes) {
            if (!isDone(doneLogical, l->major(), l->minor())) {
                VESSA_LOG << "Adding LV: " << l->name();
                doneLogical[static_cast<std::uint32_t>(l->major())].push_back(
                    static_cast<std::uint32_t>(l->minor()));
                out.push_back(h->asStorage(l, static_cast<Storage::storageType>(Storage::logicalStorageMask),
                                           static_cast<int>(indexBase + out.size()), inquiryTimeout,
                                           localHost));
            }
            sawVolume = true;
        }
        const ProcPartition* hp = h->procPartition();
        if (!sawVolume && !isDone(doneLogical, hp->major(), hp->minor())) {
            if (addLogicalDevices(out, indexBase, localHost, h, doneLogical, inquiryTimeout, true)) {
                added = true;
            }
        }
    }
    const ProcPartition* pp = link->procPartition();
    if (isChild && !sawVolume && !added && !isDone(doneLogical, pp->major(), pp->minor())) {
        doneLogical[static_cast<std::uint32_t>(pp->major())].push_back(
            static_cast<std::uint32_t>(pp->minor()));
        VESSA_LOG << "Adding partition: " << link->name();
        out.push_back(link->asStorage(static_cast<Storage::storageType>(Storage::logicalStorageMask),
                                      static_cast<int>(indexBase + out.size()), inquiryTimeout, localHost));
        added = true;
    }
    return added;
}

void addFileSystemDevices(std::list<Storage*>& out, std::size_t indexBase, Host* localHost, DeviceLink* link,
                          std::list<std::string>& doneMounts, unsigned int inquiryTimeout) {
    for (DeviceLink* p : link->partitions) {
        addFileSystemDevices(out, indexBase, localHost, p, doneMounts, inquiryTimeout);
    }
    for (DeviceLink* h : link->holders) {
        addFileSystemDevices(out, indexBase, localHost, h, doneMounts, inquiryTimeout);
    }
    for (DeviceLink* t : link->mpathTargets) {
        addFileSystemDevices(out, indexBase, localHost, t, doneMounts, inquiryTimeout);
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
            out.push_back(link->asStorage(entry, Storage::fileSystemStorage,
                                          static_cast<int>(indexBase + out.size()), inquiryTimeout,
                                          localHost));
        }
    };
    // Mounts that failed the read test only carry exclusions; they make no file-system target.
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

std::uint32_t GetStorage(Host* host, Storage::storageType type, unsigned int inquiryTimeout,
                         Progress progress) {
    VESSA_TRACE(kUnit, "GetStorage");
    int step = 0;
    auto reading = [&](const char* source) {
        if (progress != nullptr) {
            progress(step++ * 5, std::string("Reading ") + source);
        }
    };
    std::unique_ptr<Host> localHost(Host::named("127.0.0.1", false));
    RunRecords r;
    Host* lh = localHost.get();

    reading("/proc/partitions");
    readSource("CHECK /proc/partions", " items from /proc/partitions", "/proc/partitions", r.procPartitions,
               [](auto& l) { ProcPartition::readProcPartitions(l); });
    reading("/sys/block");
    readSource("CHECK /sys/block", " items from /sys/block/...", "/sys/block", r.sysBlocks,
               [&](auto& l) { SysBlock::readSysFs(l, r.procPartitions, lh); });
    reading("dmsetup");
    readSource("CHECK dmsetup", " items from \"dmsetup ls --tree\"...", "dmsetup", r.dmDevs,
               [&](auto& l) { DmTreeDev::readDmTree(l, lh); });
    reading("pvdisplay");
    readSource("CHECK pvdisplay", " items from pvdisplay...", "pvdisplay", r.physicalVolumes,
               [&](auto& l) { PhysicalVolume::readPvDisplay(l, lh); });
    reading("lvdisplay");
    readSource("CHECK lvdisplay", " items from lvdisplay...", "lvdisplay", r.logicalVolumes,
               [&](auto& l) { LogicalVolume::readLvDisplay(l, lh); });
    reading("vgdisplay");
    readSource("CHECK vgdisplay", " items from vgdisplay...", "vgdisplay", r.volumeGroups,
               [&](auto& l) { VolumeGroup::readVgDisplay(l, lh); });
    reading("/etc/fstab");
    readSource("CHECK /etc/fstab", " entries from /etc/fstab...", "/etc/fstab", r.fsTableEntries,
               [&](auto& l) { FsTableEntry::readFsTab(l, lh); });
    reading("/etc/mtab");
    readSource("CHECK /etc/mtab", " entries from /etc/mtab...", "/etc/mtab", r.mTableEntries,
               [&](auto& l) { MTableEntry::readMTab(l, lh); });
    reading("/dev/disk/by-*");
    readSource("CHECK /dev/disk/by-*", " links from /dev/disk/by-*", "/dev/disk/by-*", r.diskBys,
               [&](auto& l) { DiskBy::readDisksBy(l, lh); });

    std::list<DeviceLink*> links;
    for (ProcPartition* p : r.procPartitions) {
        auto* link = new DeviceLink(p, r.sysBlocks, r.dmDevs, r.physicalVolumes, r.logicalVolumes,
                                    r.volumeGroups, r.fsTableEntries, r.mTableEntries, r.diskBys);
        r.allLinks.push_back(link);
        links.push_back(link);
    }
    cleanLinks(links);
    makeUnique(links);
    for (DeviceLink* link : links) {
        link->print(0);
    }

    // New items are gathered apart and handed over together, so that a failure while converting
    // leaves the host's list as it was. Indices count the host's items as if each were appended at once.
    std::list<Storage*> made;
    const std::size_t base = host->storage().size();
    std::size_t reported = 0;
    auto converted = [&]() {
        if (progress != nullptr && made.size() != reported) {
            reported = made.size();
            progress(50 + static_cast<int>(std::min<std::size_t>(reported, 49)),
                     "Converting devices: " + std::to_string(reported) + " items made");
        }
    };
    try {
        if (type & Storage::discoveredBlockDevice) {
            int counter = 0;
            for (DeviceLink* link : links) {
                const std::string& n = link->name();
                if (n == ".cifs." || n == ".nfs." || n == ".fusefs.") {
                    continue;
                }
                made.push_back(
                    link->asStorage(Storage::discoveredBlockDevice, counter++, inquiryTimeout, lh));
            }
        }
        if (type & Storage::logicalStorageMask) {
            std::map<std::uint32_t, std::list<std::uint32_t>> doneLogical;
            for (DeviceLink* link : links) {
                addLogicalDevices(made, base, lh, link, doneLogical, inquiryTimeout, false);
                converted();
            }
        }
        if (type & Storage::fileSystemStorage) {
            std::list<std::string> doneMounts;
            for (DeviceLink* link : links) {
                addFileSystemDevices(made, base, lh, link, doneMounts, inquiryTimeout);
                converted();
            }
        }
    } catch (...) {
        for (Storage* s : made) {
            delete s;
        }
        throw;
    }
    if (progress != nullptr) {
        progress(100, "Done: " + std::to_string(made.size()) + " items");
    }
    host->storage().splice(host->storage().end(), made);
    return static_cast<std::uint32_t>(host->storage().size());
}

namespace {
// The facade reaches the local discovery through this registration, made when the library loads.
[[maybe_unused]] const bool kRegistered = (Host::setLocalDiscovery(&getLocalStorage), true);
}  // namespace

}  // namespace vessa::target::lin
