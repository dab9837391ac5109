#include "lin/AtRest.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sstream>

#include "lin/DeviceLink.h"
#include "lin/MTableEntry.h"
#include "lin/ProcPartition.h"
#include "lin/common.h"
#include "platform/view/SystemView.h"

namespace vessa::target::lin {

namespace {

std::string lastPart(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

const std::string& fstabWhat(const std::vector<std::string>& f, std::string& out) {
    out = f.size() > 2 && f[2] == "swap" ? std::string("configured in /etc/fstab as swap")
                                         : "configured in /etc/fstab at " + f[1];
    return out;
}

const std::string& crypttabWhat(const std::vector<std::string>& f, std::string& out) {
    out = "configured in /etc/crypttab as " + f[0];
    return out;
}

}  // namespace

const DeviceLink* diskOf(const DeviceLink* link) {
    for (const DeviceLink* p : link->parents) {
        if (std::find(p->partitions.begin(), p->partitions.end(), link) != p->partitions.end()) {
            return p;
        }
    }
    return nullptr;
}

std::string sysfsDirectory(const DeviceLink* link) {
    const DeviceLink* disk = diskOf(link);
    return disk != nullptr
               ? "/sys/block/" + sal::sys::sysfsName(disk->name()) + "/" + sal::sys::sysfsName(link->name())
               : "/sys/block/" + sal::sys::sysfsName(link->name());
}

std::vector<std::vector<std::string>> parseTable(const std::string& text) {
    std::vector<std::vector<std::string>> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::vector<std::string> f;
        for (std::string w; words >> w;) {
            f.push_back(decodeOctalEscapes(w));
        }
        if (!f.empty() && f[0][0] != '#') {
            lines.push_back(std::move(f));
        }
    }
    return lines;
}

std::string describeSignature(const sal::sys::Signature& s) {
    static const std::pair<const char*, const char*> kKnown[] = {
        {"swap", "swap space"},
        {"LVM2_member", "LVM2 physical volume"},
        {"LVM1_member", "LVM1 physical volume"},
        {"linux_raid_member", "RAID member (linux_raid_member)"},
        {"crypto_LUKS", "LUKS encrypted volume"},
        {"zfs_member", "ZFS pool member"},
        {"ceph_bluestore", "Ceph BlueStore volume"},
        {"bcache", "bcache device"},
        {"BitLocker", "BitLocker encrypted volume"},
    };
    for (const auto& [type, words] : kKnown) {
        if (s.type == type) {
            return words;
        }
    }
    if (s.usage == "partition table") {
        return s.type + " partition table";
    }
    std::string text = s.type;
    if (!s.label.empty()) {
        text += " '" + s.label + "'";
    }
    if (s.usage != "filesystem" && !s.usage.empty()) {
        text += " (" + s.usage + ")";
    }
    return text;
}

AtRest::AtRest(const std::list<DeviceLink*>& links) {
    sal::sys::View& view = sal::sys::current();
    for (const DeviceLink* l : links) {
        if (l->procPartition()->isPseudo()) {
            continue;
        }
        byName_.emplace(l->name(), l);
        Device& d = devices_[l];
        d.signatures = view.readSignatures(l->name());
        std::string ro;
        if (view.readFile(sysfsDirectory(l) + "/ro", ro)) {
            d.readOnly = ro.compare(0, 1, "1") == 0;
            d.roFlag = sysfsFlag(ro);
        }
    }
    readConfiguration("/etc/fstab", 2, &fstabWhat);
    readConfiguration("/etc/crypttab", 2, &crypttabWhat);
}

void AtRest::readConfiguration(const std::string& table, std::size_t fields,
                               const std::string& (*what)(const std::vector<std::string>&, std::string&)) {
    sal::sys::View& view = sal::sys::current();
    std::string text;
    if (!view.readFile(table, text)) {
        sal::sys::FileStatus st;
        if (view.status(table, st)) {
            unknownForAll_.push_back("whether " + table + " names it (" + table + " could not be read)");
        }
        return;
    }
    const bool crypttab = table == "/etc/crypttab";
    for (const std::vector<std::string>& f : parseTable(text)) {
        if (f.size() < fields) {
            continue;
        }
        const DeviceLink* l = named(crypttab ? f[1] : f[0]);
        if (l != nullptr) {
            std::string reason;
            std::vector<std::string>& c = devices_[l].configured;
            what(f, reason);
            if (std::find(c.begin(), c.end(), reason) == c.end()) {
                c.push_back(reason);
            }
        }
    }
}

const DeviceLink* AtRest::named(const std::string& spec) const {
    static const std::pair<const char*, const char*> kTags[] = {{"UUID=", "by-uuid"},
                                                                {"LABEL=", "by-label"},
                                                                {"PARTUUID=", "by-partuuid"},
                                                                {"PARTLABEL=", "by-partlabel"}};
    sal::sys::View& view = sal::sys::current();
    for (const auto& [tag, folder] : kTags) {
        const std::string t(tag);
        if (spec.compare(0, t.size(), t) != 0) {
            continue;
        }
        std::string value = spec.substr(t.size());
        if (value.size() >= 2 && (value[0] == '"' || value[0] == '\'') && value.back() == value[0]) {
            value = value.substr(1, value.size() - 2);
        }
        // What the device itself carries, then what udev named for it.
        for (const auto& [link, d] : devices_) {
            const auto& s = d.signatures;
            const bool match = (t == "PARTUUID=" && !s.partUuid.empty() &&
                                strcasecmp(s.partUuid.c_str(), value.c_str()) == 0) ||
                               (t == "PARTLABEL=" && !s.partName.empty() && s.partName == value) ||
                               std::any_of(s.found.begin(), s.found.end(), [&](const sal::sys::Signature& g) {
                                   return (t == "UUID=" && !g.uuid.empty() && g.uuid == value) ||
                                          (t == "LABEL=" && !g.label.empty() && g.label == value);
                               });
            if (match) {
                return link;
            }
        }
        std::string target;
        if (view.readLink(std::string("/dev/disk/") + folder + "/" + value, target)) {
            auto it = byName_.find(lastPart(target));
            return it == byName_.end() ? nullptr : it->second;
        }
        return nullptr;
    }
    if (spec.compare(0, 5, "/dev/") != 0) {
        return nullptr;
    }
    auto it = byName_.find(spec.substr(5));
    if (it != byName_.end()) {
        return it->second;
    }
    std::string target;
    if (view.readLink(spec, target)) {
        it = byName_.find(lastPart(target));
        if (it != byName_.end()) {
            return it->second;
        }
    }
    return nullptr;
}

std::vector<std::string> AtRest::data(const DeviceLink* link) const {
    std::vector<std::string> out;
    auto it = devices_.find(link);
    if (it == devices_.end()) {
        return out;
    }
    const Device& d = it->second;
    // The configuration is told with the first signature it concerns: "ext4 'DATA', configured ...".
    std::string configured;
    for (const std::string& c : d.configured) {
        configured += ", " + c;
    }
    for (const sal::sys::Signature& s : d.signatures.found) {
        out.push_back("holds data: " + describeSignature(s) + configured);
        configured.clear();
    }
    if (!configured.empty()) {
        out.push_back("holds data: " + configured.substr(2));
    }
    return out;
}

const sal::sys::SignatureProbe* AtRest::signatures(const DeviceLink* link) const {
    auto it = devices_.find(link);
    return it == devices_.end() ? nullptr : &it->second.signatures;
}

std::optional<bool> AtRest::roFlag(const DeviceLink* link) const {
    auto it = devices_.find(link);
    return it != devices_.end() ? it->second.roFlag : std::nullopt;
}

bool AtRest::readOnly(const DeviceLink* link) const {
    auto it = devices_.find(link);
    return it != devices_.end() && it->second.readOnly;
}

std::vector<std::string> AtRest::unknown(const DeviceLink* link) const {
    std::vector<std::string> out = unknownForAll_;
    auto it = devices_.find(link);
    if (it == devices_.end()) {
        return out;
    }
    const sal::sys::SignatureProbe& s = it->second.signatures;
    if (s.state == sal::sys::SignatureProbe::NotRead) {
        out.emplace_back("its signatures (not read: none recorded)");
    } else if (s.state == sal::sys::SignatureProbe::Failed) {
        out.push_back("its signatures (" + probeFailure(s.err) + ")");
    }
    return out;
}

}  // namespace vessa::target::lin
