#include "lin/InUse.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <sstream>
#include <unordered_set>

#include "lin/DeviceLink.h"
#include "lin/MTableEntry.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
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

std::string kernelName(std::string sysfsName) {
    std::replace(sysfsName.begin(), sysfsName.end(), '!', '/');
    return sysfsName;
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

InUse::InUse(const std::list<DeviceLink*>& links, const std::list<SysBlock*>& sysBlocks) {
    VESSA_TRACE(kUnit, "InUse");
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
        VESSA_LOG_AT(kUnit, "InUse") << link->name() << " is in use: " << reason;
        r.push_back(reason);
    }
}

void InUse::readMounts(const std::list<DeviceLink*>& /*links*/) {
    sal::sys::View& view = sal::sys::current();
    std::string text;
    std::vector<MountInfoLine> mounts;
    if (view.readFile("/proc/self/mountinfo", text)) {
        mounts = parseMountInfo(text);
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
    }
    text.clear();
    if (!view.readFile("/proc/swaps", text)) {
        warnings_.push_back("/proc/swaps could not be read: active swap may not show as in use");
        return;
    }
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

void InUse::readHolders(const std::list<SysBlock*>& sysBlocks) {
    auto note = [this](const SysBlock* s) {
        if (s->holders().empty()) {
            return;
        }
        auto it = byName_.find(kernelName(s->name()));
        if (it == byName_.end()) {
            return;
        }
        std::string names;
        std::vector<const DeviceLink*> holders;
        for (const SysBlock* h : s->holders()) {
            names += (names.empty() ? "" : ", ") + kernelName(h->name());
            auto held = byName_.find(kernelName(h->name()));
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
        return;  // the run's report says that devices could not be opened
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
        } else if (r.result == sal::sys::ExclusiveOpen::Failed && r.err == ENOENT) {
            ++unseen;
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
