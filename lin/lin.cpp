#include "lin/lin.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "lin/AtRest.h"
#include "lin/Completeness.h"
#include "lin/DeviceLink.h"
#include "lin/DeviceTree.h"
#include "lin/DiskBy.h"
#include "lin/DmTreeDev.h"
#include "lin/FsTableEntry.h"
#include "lin/Identity.h"
#include "lin/InUse.h"
#include "lin/LinkIndex.h"
#include "lin/LogicalVolume.h"
#include "lin/MTableEntry.h"
#include "lin/PhysicalVolume.h"
#include "lin/ProbePlan.h"
#include "lin/ProcPartition.h"
#include "lin/RecordIndex.h"
#include "lin/RunRecords.h"
#include "lin/SysBlock.h"
#include "lin/VolumeGroup.h"
#include "platform/Exception.h"
#include "platform/Log.h"
#include "platform/Str.h"
#include "platform/view/RunScope.h"
#include "target/Host.h"

namespace vessa::target::lin {

std::uint64_t numbersKey(int major, int minor) {
    return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(major)) << 32) |
           static_cast<std::uint32_t>(minor);
}

namespace {

constexpr const char* kUnit = "lin/lin";

// Runs one reader with its check line and its count line. A reader that stops on data it cannot
// understand keeps what it read before; the run logs the exception, notes the source as failed and
// goes on with the next one.
template <class T, class F>
void readSource(const char* check, const char* tail, const char* source, std::list<T*>& list,
                std::vector<DiscoveryReport::Failure>& failures, F reader) {
    VESSA_TRACE(kUnit, "GetStorage");
    VESSA_LOG << check;
    try {
        reader(list);
    } catch (const vessa::Exception& e) {
        VESSA_LOG << e.typeName() << " because " << e.why() << " ("
                  << sal::err::asString(e.code(), e.domain()) << ")";
        failures.push_back({source, e.why()});
    }
    std::size_t count = 0;
    for (auto it = list.begin(); it != list.end(); ++it) {
        ++count;
    }
    VESSA_LOG << "Pulled " << count << tail;
}

void noteOrigin(std::vector<const DeviceLink*>* origins, const DeviceLink* link) {
    if (origins != nullptr) {
        origins->push_back(link);
    }
}

Property inUseProperty(const std::vector<std::string>& reasons) {
    std::string value;
    for (const std::string& r : reasons) {
        value += (value.empty() ? "" : "; ") + r;
    }
    return Property("inUse", value, "In Use",
                    "Reasons the device is in use on the system, as the kernel reports them. A device in use "
                    "is never a test target.",
                    "General");
}

// One pair's step of makeUnique. With `reach`, pairs below which no volume can meet are passed over:
// they would change nothing (only the log shows such visits, and a run with a log takes every pair).
void makeUniquePair(DeviceLink* a, DeviceLink* b, const VolumeReach* reach) {
    if (reach != nullptr && !reach->meet(a, b)) {
        return;
    }
    const DeviceLink::Visit visit(a, DeviceLink::Unique);
    if (!visit.entered()) {
        return;
    }
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
        makeUniquePair(p, b, reach);
        for (DeviceLink* q : b->partitions) {
            makeUniquePair(p, q, reach);
        }
    }
    for (DeviceLink* h : a->holders) {
        makeUniquePair(h, b, reach);
        for (DeviceLink* g : b->holders) {
            makeUniquePair(h, g, reach);
        }
    }
}

// The mount point of a file-system item: its path is the mount point, "/" and the target file's name.
std::string mountPointOf(const Storage& item) {
    std::string path = item.path();
    const std::string file = "targetfile.dat";
    if (path.size() >= file.size() && path.compare(path.size() - file.size(), file.size(), file) == 0) {
        path.erase(path.size() - file.size());
    }
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path.empty() ? "/" : path;
}

// `fileSystem`: the item is a file-system item (told by the caller: the item's own accessor of its
// type writes to the log, and the verdicts must leave the run's log as the records make it).
Verdict verdictOf(const Storage& item, bool fileSystem, const DeviceLink* link, const InUse& inUse,
                  const AtRest& atRest) {
    Verdict v;
    for (const std::string& w : Verdict::exclusionWords(item.exclusionString())) {
        v.add(Verdict::Excluded, w);
    }
    if (atRest.readOnly(link)) {
        v.add(Verdict::Excluded, "read-only");
    }
    for (const std::string& r : inUse.reasons(link)) {
        v.add(Verdict::InUse, r);
    }
    for (const std::string& r : inUse.unknown(link)) {
        v.add(Verdict::Unknown, r);
    }
    if (fileSystem) {
        // A file-system item writes a file into a mounted file system, not onto the device: what
        // matters is that the file lands on the device it names.
        for (const std::string& r : inUse.targetReasons(mountPointOf(item), link)) {
            v.add(Verdict::InUse, r);
        }
        return v;
    }
    for (const std::string& r : atRest.data(link)) {
        v.add(Verdict::HoldsData, r);
    }
    for (const std::string& r : atRest.unknown(link)) {
        v.add(Verdict::Unknown, r);
    }
    return v;
}

}  // namespace

unsigned int getLocalStorage(Host* host, Storage::storageType type, const std::list<std::string>& arguments,
                             Progress progress) {
    unsigned int timeout = 1;
    bool inUse = false, tree = false, identity = false;
    for (const std::string& a : arguments) {
        if (a == kInUseOption) {
            inUse = true;
        } else if (a == kIdentityOption) {
            identity = true;
        } else if (a == kTreeOption) {
            tree = true;
        } else if (a.size() > 2 && (a[1] == 'j' || a[1] == 'J')) {
            util::str::to(timeout, a.substr(2));
        }
    }
    return GetStorage(host, type, timeout, progress, inUse, tree, identity);
}

void cleanLinks(std::list<DeviceLink*>& links) {
    VESSA_TRACE(kUnit, "cleanLinks");
    const RelationIndex index(links);
    std::list<DeviceLink*> removed;
    for (DeviceLink* a : links) {
        for (DeviceLink* b : index.candidates(a)) {
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
    std::unordered_set<DeviceLink*> gone(removed.begin(), removed.end());
    links.remove_if([&gone](DeviceLink* l) { return gone.count(l) != 0; });
}

void makeUnique(std::list<DeviceLink*>& links) {
    VESSA_TRACE(kUnit, "makeUnique(DevLinks)");
    if (vessa::log::enabled()) {
        // The log shows every pair's visit, so a run with a log makes every one of them.
        for (DeviceLink* a : links) {
            for (DeviceLink* b : links) {
                makeUniquePair(a, b, nullptr);
            }
        }
        return;
    }
    const VolumeReach reach(links);
    for (DeviceLink* a : links) {
        for (DeviceLink* b : reach.partners(a)) {
            makeUniquePair(a, b, &reach);
        }
    }
}

bool addLogicalDevices(std::list<Storage*>& out, std::size_t indexBase, Host* localHost, DeviceLink* link,
                       DoneDevices& doneLogical, unsigned int inquiryTimeout, bool isChild,
                       std::vector<const DeviceLink*>* origins) {
    const DeviceLink::Visit visit(link, DeviceLink::Logical);
    if (!visit.entered()) {
        return false;
    }
    VESSA_TRACE(kUnit, "addLogicalDevices");
    VESSA_LOG << "Adding logical devices for " << link->name();
    bool added = false;
    for (DeviceLink* p : link->partitions) {
        if (addLogicalDevices(out, indexBase, localHost, p, doneLogical, inquiryTimeout, true, origins)) {
            added = true;
        }
    }
    bool sawVolume = false;
    for (DeviceLink* h : link->holders) {
        for (LogicalVolume* l : h->logicalVolumes) {
            if (doneLogical.insert(numbersKey(l->major(), l->minor())).second) {
                VESSA_LOG << "Adding LV: " << l->name();
                out.push_back(h->asStorage(l, static_cast<Storage::storageType>(Storage::logicalStorageMask),
                                           static_cast<int>(indexBase + out.size()), inquiryTimeout,
                                           localHost));
                noteOrigin(origins, h);
            }
            sawVolume = true;
        }
        const ProcPartition* hp = h->procPartition();
        if (!sawVolume && doneLogical.count(numbersKey(hp->major(), hp->minor())) == 0) {
            if (addLogicalDevices(out, indexBase, localHost, h, doneLogical, inquiryTimeout, true, origins)) {
                added = true;
            }
        }
    }
    const ProcPartition* pp = link->procPartition();
    if (isChild && !sawVolume && !added && doneLogical.insert(numbersKey(pp->major(), pp->minor())).second) {
        VESSA_LOG << "Adding partition: " << link->name();
        out.push_back(link->asStorage(static_cast<Storage::storageType>(Storage::logicalStorageMask),
                                      static_cast<int>(indexBase + out.size()), inquiryTimeout, localHost));
        noteOrigin(origins, link);
        added = true;
    }
    return added;
}

void addFileSystemDevices(std::list<Storage*>& out, std::size_t indexBase, Host* localHost, DeviceLink* link,
                          DoneMounts& doneMounts, unsigned int inquiryTimeout,
                          std::vector<const DeviceLink*>* origins) {
    const DeviceLink::Visit visit(link, DeviceLink::FileSystems);
    if (!visit.entered()) {
        return;
    }
    for (DeviceLink* p : link->partitions) {
        addFileSystemDevices(out, indexBase, localHost, p, doneMounts, inquiryTimeout, origins);
    }
    for (DeviceLink* h : link->holders) {
        addFileSystemDevices(out, indexBase, localHost, h, doneMounts, inquiryTimeout, origins);
    }
    for (DeviceLink* t : link->mpathTargets) {
        addFileSystemDevices(out, indexBase, localHost, t, doneMounts, inquiryTimeout, origins);
    }
    auto add = [&](const std::string& mountPoint, auto* entry) {
        VESSA_TRACE(kUnit, "addFileSystemDevices");
        VESSA_LOG << "Have we already done\"" << mountPoint << "\"";
        if (!doneMounts.insert(mountPoint).second) {
            VESSA_LOG << "Looks like it";
            return;
        }
        VESSA_LOG << "Apparently not.";
        if (mountPoint.rfind("/proc/", 0) != 0 && mountPoint.rfind("/sys/", 0) != 0) {
            out.push_back(link->asStorage(entry, Storage::fileSystemStorage,
                                          static_cast<int>(indexBase + out.size()), inquiryTimeout,
                                          localHost));
            noteOrigin(origins, link);
        }
    };
    for (MTableEntry* m : link->mTableEntries) {
        add(m->mountPoint(), m);
    }
    for (FsTableEntry* f : link->fsTableEntries) {
        if (f->flag()) {
            add(f->mountPoint(), f);
        }
    }
}

std::uint32_t GetStorage(Host* host, Storage::storageType type, unsigned int inquiryTimeout,
                         Progress progress, bool withInUse, bool withTree, bool withIdentity) {
    VESSA_TRACE(kUnit, "GetStorage");
    int step = 0;
    auto reading = [&](const char* source) {
        if (progress != nullptr) {
            progress(step++ * 5, std::string("Reading ") + source);
        }
    };
    // Directory listings are read once for the whole run, and what the sources came to is noted.
    sal::sys::RunScope scope(watchedSources());
    std::unique_ptr<Host> localHost(Host::named("127.0.0.1", false));
    RunRecords r;
    Host* lh = localHost.get();
    DiscoveryReport report;
    auto& failed = report.failedSources;
    DiskBy::readAhead();
    // The device-mapper and volume tools, started together: the readers below take their outputs in
    // their own order.
    sal::sys::RunScope::runAhead({{"dmsetup", DmTreeDev::kMultipathArgs},
                                  {"dmsetup", DmTreeDev::kTreeArgs},
                                  {"pvdisplay", {}},
                                  {"lvdisplay", {}},
                                  {"vgdisplay", {}}});

    reading("/proc/partitions");
    readSource("CHECK /proc/partions", " items from /proc/partitions", "/proc/partitions", r.procPartitions,
               failed, [](auto& l) { ProcPartition::readProcPartitions(l); });
    reading("/sys/block");
    readSource("CHECK /sys/block", " items from /sys/block/...", "/sys/block", r.sysBlocks, failed,
               [&](auto& l) { SysBlock::readSysFs(l, r.procPartitions, lh); });
    // Every run decides each item's verdict, so every device is tested for exclusive use and probed
    // for its signatures.
    const std::vector<std::string> probeWarnings =
        planEarlyProbes(r.procPartitions, r.sysBlocks, type, true, inquiryTimeout);
    reading("dmsetup");
    readSource("CHECK dmsetup", " items from \"dmsetup ls --tree\"...", "dmsetup", r.dmDevs, failed,
               [&](auto& l) { DmTreeDev::readDmTree(l, lh); });
    reading("pvdisplay");
    readSource("CHECK pvdisplay", " items from pvdisplay...", "pvdisplay", r.physicalVolumes, failed,
               [&](auto& l) { PhysicalVolume::readPvDisplay(l, lh); });
    reading("lvdisplay");
    readSource("CHECK lvdisplay", " items from lvdisplay...", "lvdisplay", r.logicalVolumes, failed,
               [&](auto& l) { LogicalVolume::readLvDisplay(l, lh); });
    reading("vgdisplay");
    readSource("CHECK vgdisplay", " items from vgdisplay...", "vgdisplay", r.volumeGroups, failed,
               [&](auto& l) { VolumeGroup::readVgDisplay(l, lh); });
    reading("/etc/fstab");
    readSource("CHECK /etc/fstab", " entries from /etc/fstab...", "/etc/fstab", r.fsTableEntries, failed,
               [&](auto& l) { FsTableEntry::readFsTab(l, lh); });
    reading("/etc/mtab");
    readSource("CHECK /etc/mtab", " entries from /etc/mtab...", "/etc/mtab", r.mTableEntries, failed,
               [&](auto& l) { MTableEntry::readMTab(l, lh); });
    reading("/dev/disk/by-*");
    readSource("CHECK /dev/disk/by-*", " links from /dev/disk/by-*", "/dev/disk/by-*", r.diskBys, failed,
               [&](auto& l) { DiskBy::readDisksBy(l, lh); });

    std::list<DeviceLink*> links;
    {
        const RecordIndex index(r.sysBlocks, r.dmDevs, r.physicalVolumes, r.logicalVolumes, r.volumeGroups,
                                r.fsTableEntries, r.mTableEntries, r.diskBys);
        for (ProcPartition* p : r.procPartitions) {
            auto* link = new DeviceLink(p, index);
            r.allLinks.push_back(link);
            links.push_back(link);
        }
    }
    cleanLinks(links);
    makeUnique(links);
    planProbes(links, r.allLinks, type, true, inquiryTimeout);
    for (DeviceLink* link : links) {
        link->print(0);
    }
    // The kernel's own view of what is in use and what the devices hold at rest, beside the exclusions:
    // always asked, for the verdicts; logged, and shown as a property, only when asked for. Both go
    // once the verdicts are made, before the device tree: on a large host the run is at its fullest then.
    std::optional<const InUse> inUse(std::in_place, r.allLinks, r.sysBlocks, withInUse);
    std::optional<const AtRest> atRest(std::in_place, r.allLinks);
    // Who each device is, read with the sources (the reading below ends what they read ahead).
    // Beside each, how many items will take it (counted once the items are made).
    std::unordered_map<const DeviceLink*, std::pair<Identity, std::size_t>> identities;
    if (withIdentity) {
        IdentityReader reader(*atRest);
        for (const DeviceLink* link : r.allLinks) {
            identities.try_emplace(link, reader.of(link), 0);
        }
    }
    // Everything below asks the devices, not the files: what was read for the sources can go.
    sal::sys::RunScope::endReading();

    // New items are gathered apart and handed over together, so that a failure while converting
    // leaves the host's list as it was. Indices count the host's items as if each were appended at once.
    std::list<Storage*> made;
    std::vector<const DeviceLink*> origins;  // the link each item was made from, in step with `made`
    const std::size_t base = host->storage().size();
    std::size_t reported = 0;
    std::size_t fileSystemsFrom = std::numeric_limits<std::size_t>::max();  // the first file-system item
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
                origins.push_back(link);
            }
        }
        if (type & Storage::logicalStorageMask) {
            DoneDevices doneLogical;
            for (DeviceLink* link : links) {
                addLogicalDevices(made, base, lh, link, doneLogical, inquiryTimeout, false, &origins);
                converted();
            }
        }
        if (type & Storage::fileSystemStorage) {
            fileSystemsFrom = made.size();
            DoneMounts doneMounts;
            for (DeviceLink* link : links) {
                addFileSystemDevices(made, base, lh, link, doneMounts, inquiryTimeout, &origins);
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
    {
        // Each identity is handed over with its link's last item, and the others are let go before: on a
        // host with tens of thousands of devices, a copy kept for every link beside the host's made a
        // tenth of the run's memory. The count beside each is how many items still want it.
        for (const DeviceLink* link : origins) {
            auto id = identities.find(link);
            if (id != identities.end()) {
                ++id->second.second;
            }
        }
        for (auto id = identities.begin(); id != identities.end();) {
            id = id->second.second == 0 ? identities.erase(id) : std::next(id);
        }
        auto origin = origins.begin();
        std::size_t at = 0;
        for (Storage* item : made) {
            const DeviceLink* link = *origin++;
            if (withInUse) {
                item->addProperty(inUseProperty(inUse->reasons(link)));
            }
            host->setVerdict(item, verdictOf(*item, at++ >= fileSystemsFrom, link, *inUse, *atRest));
            if (withIdentity) {
                auto id = identities.find(link);
                if (id == identities.end()) {
                    host->setIdentity(item, Identity());
                } else if (--id->second.second == 0) {
                    host->setIdentity(item, std::move(id->second.first));
                    identities.erase(id);
                } else {
                    host->setIdentity(item, id->second.first);
                }
            }
        }
    }
    const std::vector<std::string> inUseWarnings = inUse->warnings();
    inUse.reset();
    atRest.reset();
    if (withTree) {
        std::unordered_map<const DeviceLink*, std::vector<std::size_t>> itemsOf;
        for (std::size_t i = 0; i < origins.size(); ++i) {
            itemsOf[origins[i]].push_back(base + i);
        }
        report.devices = deviceTree(links, itemsOf);
    }
    host->storage().splice(host->storage().end(), made);
    std::vector<DiscoveryReport::Failure> noted;
    for (const auto& [source, reason] : scope.failures()) {
        noted.push_back({source, reason});
    }
    report.failedSources.insert(report.failedSources.begin(), noted.begin(), noted.end());
    report.warnings = completenessWarnings(scope, report.failedSources, r.procPartitions);
    if (withInUse) {
        report.warnings.insert(report.warnings.end(), inUseWarnings.begin(), inUseWarnings.end());
    }
    report.warnings.insert(report.warnings.end(), probeWarnings.begin(), probeWarnings.end());
    for (std::string& w : scope.probeWarnings()) {
        report.warnings.push_back(std::move(w));
    }
    host->setDiscoveryReport(std::move(report));
    vessa::log::flush();
    return static_cast<std::uint32_t>(host->storage().size());
}

namespace {
// The facade reaches the local discovery through this registration, made when the library loads.
[[maybe_unused]] const bool kRegistered = (Host::setLocalDiscovery(&getLocalStorage), true);
}  // namespace

}  // namespace vessa::target::lin
