#include "lin/InUse.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <sstream>
#include <unordered_set>

#include "lin/DeviceLink.h"
#include "lin/MTableEntry.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
#include "lin/common.h"
#include "platform/Log.h"
#include "platform/view/SystemView.h"

namespace vessa::target::lin {

namespace {

constexpr const char* kUnit = "lin/InUse.cpp";

unsigned long long numbers(int major, int minor) {
    return (static_cast<unsigned long long>(static_cast<unsigned int>(major)) << 32) |
           static_cast<unsigned int>(minor);
}

std::vector<std::string> fields(const std::string& line) {
    std::vector<std::string> out;
    std::istringstream in(line);
    for (std::string f; in >> f;) {
        out.push_back(f);
    }
    return out;
}

bool number(const std::string& text, int& value) {
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, value);
    return ec == std::errc() && ptr == end && value >= 0;
}

}  // namespace

std::vector<MountInfoLine> parseMountInfo(const std::string& text) {
    std::vector<MountInfoLine> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::vector<std::string> f = fields(line);
        // id, parent, major:minor, root, mount point, options, optional fields..., "-", type, source.
        auto dash = std::find(f.begin() + std::min<std::size_t>(f.size(), 6), f.end(), "-");
        if (f.size() < 9 || dash == f.end() || f.end() - dash < 3) {
            continue;
        }
        MountInfoLine m;
        const std::string::size_type colon = f[2].find(':');
        if (colon == std::string::npos || !number(f[2].substr(0, colon), m.major) ||
            !number(f[2].substr(colon + 1), m.minor)) {
            continue;
        }
        m.mountPoint = decodeOctalEscapes(f[4]);
        m.fileSystemType = dash[1];
        m.source = decodeOctalEscapes(dash[2]);
        lines.push_back(std::move(m));
    }
    return lines;
}

std::vector<SwapLine> parseSwaps(const std::string& text) {
    std::vector<SwapLine> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::vector<std::string> f = fields(line);
        if (f.size() < 2 || f[0] == "Filename") {
            continue;
        }
        lines.push_back({decodeOctalEscapes(f[0]), f[1]});
    }
    return lines;
}

InUse::InUse(const std::list<DeviceLink*>& links, const std::list<SysBlock*>& sysBlocks, bool logged)
    : logged_(logged) {
    std::unique_ptr<log::Trace> trace(logged ? new log::Trace(kUnit, "InUse") : nullptr);
    for (const DeviceLink* l : links) {
        if (l->procPartition()->isPseudo()) {
            continue;
        }
        byName_[l->name()].push_back(l);
        byNumbers_[numbers(l->procPartition()->major(), l->procPartition()->minor())].push_back(l);
    }
    readMounts(links);
    readHolders(sysBlocks);
    testExclusive(links);
}

void InUse::add(const DeviceLink* link, const std::string& reason) {
    std::vector<std::string>& r = own_[link];
    if (std::find(r.begin(), r.end(), reason) == r.end()) {
        if (logged_) {
            VESSA_LOG_AT(kUnit, "InUse") << link->name() << " is in use: " << reason;
        }
        r.push_back(reason);
    }
}

void InUse::readMounts(const std::list<DeviceLink*>& /*links*/) {
    sal::sys::View& view = sal::sys::current();
    std::string text;
    std::vector<MountInfoLine> mounts;
    if (view.readFile("/proc/self/mountinfo", text)) {
        mounts = parseMountInfo(text);
        mountsRead_ = true;
        readBtrfs();
    } else {
        warnings_.push_back("/proc/self/mountinfo could not be read: mounted devices may not show as in use");
    }
    for (const MountInfoLine& m : mounts) {
        auto it = byNumbers_.find(numbers(m.major, m.minor));
        if (it != byNumbers_.end()) {
            for (const DeviceLink* l : it->second) {
                add(l, "mounted at " + m.mountPoint);
            }
        }
        for (const DeviceLink* l : sourceDevices(m)) {
            add(l, "mounted at " + m.mountPoint);
        }
    }
    mounts_ = mounts;
    text.clear();
    if (!view.readFile("/proc/swaps", text)) {
        warnings_.push_back("/proc/swaps could not be read: active swap may not show as in use");
        return;
    }
    swapsRead_ = true;
    for (const SwapLine& s : parseSwaps(text)) {
        if (s.type == "file") {
            // The file system that holds the file: the mount whose point is the longest leading part.
            const MountInfoLine* holder = nullptr;
            for (const MountInfoLine& m : mounts) {
                const bool under = m.mountPoint == "/" ||
                                   s.path.compare(0, m.mountPoint.size() + 1, m.mountPoint + "/") == 0;
                if (under && (holder == nullptr || m.mountPoint.size() >= holder->mountPoint.size())) {
                    holder = &m;
                }
            }
            auto it =
                holder == nullptr ? byNumbers_.end() : byNumbers_.find(numbers(holder->major, holder->minor));
            if (it != byNumbers_.end()) {
                for (const DeviceLink* l : it->second) {
                    add(l, "holds active swap file " + s.path);
                }
            }
            continue;
        }
        std::string name = s.path.compare(0, 5, "/dev/") == 0 ? s.path.substr(5) : s.path;
        if (byName_.count(name) == 0) {
            // A path through a link (/dev/mapper/vg-swap -> ../dm-1) names the device it points to.
            std::string target;
            if (view.readLink(s.path, target)) {
                name = target.substr(target.rfind('/') + 1);
            }
        }
        auto it = byName_.find(name);
        if (it != byName_.end()) {
            for (const DeviceLink* l : it->second) {
                add(l, "active swap");
            }
        }
    }
}

void InUse::readBtrfs() {
    sal::sys::View& view = sal::sys::current();
    std::vector<sal::sys::DirEntry> filesystems;
    if (!view.listDirectory("/sys/fs/btrfs", filesystems)) {
        return;  // no btrfs module: no btrfs mounts
    }
    for (const sal::sys::DirEntry& f : filesystems) {
        std::vector<sal::sys::DirEntry> devices;
        if (f.name == "features" || !view.listDirectory("/sys/fs/btrfs/" + f.name + "/devices", devices)) {
            continue;
        }
        std::vector<std::string> members;
        for (const sal::sys::DirEntry& d : devices) {
            members.push_back(sal::sys::fromSysfsName(d.name));
        }
        for (const std::string& m : members) {
            btrfsMembers_[m] = members;
        }
    }
}

const DeviceLink* InUse::byPath(const std::string& path) const {
    if (path.compare(0, 5, "/dev/") != 0) {
        return nullptr;
    }
    auto it = byName_.find(path.substr(5));
    if (it == byName_.end()) {
        // A name through a link (/dev/mapper/vg-data -> ../dm-1, /dev/disk/by-uuid/...).
        std::string target;
        if (!sal::sys::current().readLink(path, target)) {
            return nullptr;
        }
        it = byName_.find(target.substr(target.rfind('/') + 1));
        if (it == byName_.end()) {
            return nullptr;
        }
    }
    return it->second.front();
}

std::vector<const DeviceLink*> InUse::sourceDevices(const MountInfoLine& m) const {
    std::vector<const DeviceLink*> found;
    std::string::size_type start = 0;
    std::vector<std::string> paths;
    // Several devices of one file system, "/dev/sdc1:/dev/sdc2"; a single source may hold no colon.
    for (;;) {
        const std::string::size_type colon = m.source.find(":/dev/", start);
        paths.push_back(
            m.source.substr(start, colon == std::string::npos ? std::string::npos : colon - start));
        if (colon == std::string::npos) {
            break;
        }
        start = colon + 1;
    }
    for (const std::string& p : paths) {
        const DeviceLink* l = byPath(p);
        if (l == nullptr) {
            continue;
        }
        found.push_back(l);
        auto members = btrfsMembers_.find(l->name());
        if (m.fileSystemType == "btrfs" && members != btrfsMembers_.end()) {
            for (const std::string& name : members->second) {
                auto it = byName_.find(name);
                if (it != byName_.end()) {
                    found.insert(found.end(), it->second.begin(), it->second.end());
                }
            }
        }
    }
    return found;
}

std::vector<std::string> InUse::unknown(const DeviceLink* link) const {
    std::vector<std::string> out;
    if (!mountsRead_) {
        out.emplace_back("whether it is mounted (the mount table could not be read)");
    }
    if (!swapsRead_) {
        out.emplace_back("whether it is active swap (the swap table could not be read)");
    }
    auto it = untested_.find(link);
    if (it != untested_.end()) {
        const int err = it->second;
        out.push_back("whether anything holds it open (" +
                      (err == ENOENT ? "not tested" : probeFailure(err)) + ")");
    }
    return out;
}

std::vector<std::string> InUse::targetReasons(const std::string& mountPoint, const DeviceLink* link) const {
    if (!mountsRead_) {
        return {};
    }
    // The last mount at that point is the one a path below it reaches.
    const MountInfoLine* at = nullptr;
    const MountInfoLine* holder = nullptr;
    for (const MountInfoLine& m : mounts_) {
        if (m.mountPoint == mountPoint) {
            at = &m;
        }
        const bool under =
            m.mountPoint == "/" || mountPoint.compare(0, m.mountPoint.size() + 1, m.mountPoint + "/") == 0;
        if (under && m.mountPoint != mountPoint &&
            (holder == nullptr || m.mountPoint.size() >= holder->mountPoint.size())) {
            holder = &m;
        }
    }
    if (at == nullptr) {
        return {"not mounted: would write into the file system of " +
                (holder == nullptr ? std::string("an unknown device") : holder->mountPoint)};
    }
    if (link->procPartition()->isPseudo()) {
        return {};  // a network or user-space file system: its source names no device of ours
    }
    auto same = byNumbers_.find(numbers(at->major, at->minor));
    if (same != byNumbers_.end() &&
        std::find(same->second.begin(), same->second.end(), link) != same->second.end()) {
        return {};
    }
    for (const DeviceLink* l : sourceDevices(*at)) {
        if (l == link) {
            return {};
        }
    }
    return {"mounted from " + at->source + ": would write into that device, not into " + link->name()};
}

void InUse::readHolders(const std::list<SysBlock*>& sysBlocks) {
    auto note = [this](const SysBlock* s) {
        if (s->holders().empty()) {
            return;
        }
        auto it = byName_.find(sal::sys::fromSysfsName(s->name()));
        if (it == byName_.end()) {
            return;
        }
        std::string names;
        std::vector<const DeviceLink*> holders;
        for (const SysBlock* h : s->holders()) {
            names += (names.empty() ? "" : ", ") + sal::sys::fromSysfsName(h->name());
            auto held = byName_.find(sal::sys::fromSysfsName(h->name()));
            if (held != byName_.end()) {
                holders.insert(holders.end(), held->second.begin(), held->second.end());
            }
        }
        for (const DeviceLink* l : it->second) {
            add(l, "held by " + names);
            std::vector<const DeviceLink*>& by = heldBy_[l];
            by.insert(by.end(), holders.begin(), holders.end());
        }
    };
    for (const SysBlock* s : sysBlocks) {
        note(s);
        for (const SysBlock* p : s->partitions()) {
            note(p);
        }
    }
}

void InUse::testExclusive(const std::list<DeviceLink*>& links) {
    sal::sys::View& view = sal::sys::current();
    if (!view.privileged()) {
        // The run's report says that devices could not be opened; each device says it was not tested.
        for (const DeviceLink* l : links) {
            if (!l->procPartition()->isPseudo()) {
                untested_[l] = EACCES;
            }
        }
        return;
    }
    std::size_t tested = 0, unseen = 0;
    for (const DeviceLink* l : links) {
        if (l->procPartition()->isPseudo()) {
            continue;
        }
        const sal::sys::ExclusiveOpen r = view.exclusiveOpen(l->name());
        ++tested;
        if (r.result == sal::sys::ExclusiveOpen::Busy) {
            busy_.insert(l);
        } else if (r.result == sal::sys::ExclusiveOpen::Failed) {
            untested_[l] = r.err;
            unseen += r.err == ENOENT;
        }
    }
    if (tested != 0 && unseen == tested) {
        warnings_.push_back(
            "no device could be tested for exclusive use: devices held by programs may not "
            "show as in use");
    }
}

std::vector<const DeviceLink*> InUse::builtOn(const DeviceLink* link) const {
    std::vector<const DeviceLink*> above(link->partitions.begin(), link->partitions.end());
    above.insert(above.end(), link->holders.begin(), link->holders.end());
    for (const DeviceLink* p : link->parents) {
        if (std::find(p->mpathTargets.begin(), p->mpathTargets.end(), link) != p->mpathTargets.end()) {
            above.push_back(p);
        }
    }
    auto it = heldBy_.find(link);
    if (it != heldBy_.end()) {
        above.insert(above.end(), it->second.begin(), it->second.end());
    }
    return above;
}

std::vector<const DeviceLink*> InUse::closure(const DeviceLink* link) const {
    std::unordered_set<const DeviceLink*> seen = {link};
    std::vector<const DeviceLink*> found;
    std::vector<const DeviceLink*> queue = builtOn(link);
    for (std::size_t i = 0; i < queue.size(); ++i) {
        const DeviceLink* b = queue[i];
        if (seen.insert(b).second) {
            found.push_back(b);
            const std::vector<const DeviceLink*> more = builtOn(b);
            queue.insert(queue.end(), more.begin(), more.end());
        }
    }
    return found;
}

std::vector<std::string> InUse::ownReasons(const DeviceLink* link) const {
    auto own = own_.find(link);
    if (own != own_.end()) {
        return own->second;
    }
    if (busy_.count(link) == 0) {
        return {};
    }
    // A device busy for what is built on it (a disk whose partition is mounted) says that already.
    for (const DeviceLink* b : closure(link)) {
        if (own_.count(b) != 0) {
            return {};
        }
    }
    return {"busy: an exclusive open is refused"};
}

std::vector<std::string> InUse::reasons(const DeviceLink* link) const {
    std::vector<std::string> out;
    auto append = [&out](const std::string& r) {
        if (std::find(out.begin(), out.end(), r) == out.end()) {
            out.push_back(r);
        }
    };
    for (const std::string& r : ownReasons(link)) {
        append(r);
    }
    for (const DeviceLink* b : closure(link)) {
        for (const std::string& r : ownReasons(b)) {
            append("through " + b->name() + ": " + r);
        }
    }
    return out;
}

}  // namespace vessa::target::lin
