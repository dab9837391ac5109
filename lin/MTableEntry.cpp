#include "lin/MTableEntry.h"

#include <sstream>

#include "platform/Log.h"
#include "platform/view/SystemView.h"

namespace vessa::target::lin {

namespace {

constexpr const char* kUnit = "lin/MTableEntry.cpp";

bool startsWith(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}

bool liveReadable(const std::string& device) {
    return sal::sys::current().deviceReadable(device);
}

}  // namespace

std::string decodeOctalEscapes(const std::string& field) {
    std::string out;
    for (std::string::size_type i = 0; i < field.size(); ++i) {
        if (field[i] == '\\' && i + 3 < field.size() && field[i + 1] >= '0' && field[i + 1] <= '3' &&
            field[i + 2] >= '0' && field[i + 2] <= '7' && field[i + 3] >= '0' && field[i + 3] <= '7') {
            out += static_cast<char>((field[i + 1] - '0') * 64 + (field[i + 2] - '0') * 8 +
                                     (field[i + 3] - '0'));
            i += 3;
        } else {
            out += field[i];
        }
    }
    return out;
}

std::list<MountLine> parseMountTable(const std::string& text) {
    std::list<MountLine> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        std::string::size_type first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') {
            continue;
        }
        std::string fields[4];
        std::string::size_type pos = first;
        for (std::string& f : fields) {
            pos = line.find_first_not_of(" \t", pos);
            if (pos == std::string::npos) {
                break;
            }
            const std::string::size_type end = line.find_first_of(" \t", pos);
            f = decodeOctalEscapes(
                line.substr(pos, end == std::string::npos ? std::string::npos : end - pos));
            pos = end;
        }
        lines.push_back({fields[0], fields[1], fields[2], fields[3]});
    }
    return lines;
}

void mountPointExclusions(const std::string& mountPoint, Storage::exclusions& ex) {
    if (mountPoint == "/") {
        ex |= Storage::kSystem;
    } else if (mountPoint == "/boot") {
        ex |= Storage::kBoot;
    } else if (mountPoint == "swap") {
        ex |= Storage::kSwap;
    }
}

MTableEntry::MTableEntry(const std::string& mountPoint, const std::string& deviceName,
                         const std::string& fileSystemType)
    : type_(fileSystemType), mountPoint_(mountPoint), device_(deviceName) {
    VESSA_LOG_AT(kUnit, "MTableEntry.ctor")
        << "Filesystem \"" << device_ << "\" mounted at \"" << mountPoint_ << "\" formatted as " << type_;
}

void MTableEntry::parse(const std::string& text, std::list<MTableEntry*>& result,
                        bool (*readable)(const std::string& device)) {
    VESSA_TRACE(kUnit, "readMTab");
    for (const MountLine& m : parseMountTable(text)) {
        VESSA_LOG << "\n    checking: FSNAME=" << m.device << "\n                 DIR=" << m.directory
                  << "\n                TYPE=" << m.type;
        const bool network = m.type.find("cifs") != std::string::npos ||
                             m.type.find("nfs") != std::string::npos ||
                             m.type.find("fuse.") != std::string::npos;
        if (!startsWith(m.device, "/dev/") && !network) {
            VESSA_LOG << "SKIP";
            continue;
        }
        // The prefix test here is stricter than the containment test above, on purpose: "xnfs" gets
        // this far but is taken only when its device can be read.
        const bool accepted = readable(m.device) || startsWith(m.type, "cifs") || startsWith(m.type, "nfs") ||
                              startsWith(m.type, "fuse.");
        if (accepted) {
            VESSA_LOG << "Adding drive " << m.device;
            result.push_back(new MTableEntry(m.directory, m.device, m.type));
        } else {
            VESSA_LOG << "Found " << m.device << ", but could not read from it.";
        }
    }
}

bool MTableEntry::readMTab(std::list<MTableEntry*>& result, Host* /*host*/) {
    VESSA_TRACE(kUnit, "readMTab");
    std::string text;
    if (!sal::sys::current().readFile("/etc/mtab", text)) {
        return false;
    }
    VESSA_LOG << "Reading from /etc/mtab";
    parse(text, result, liveReadable);
    return true;
}

void MTableEntry::getExclusions(Storage::exclusions& ex) {
    mountPointExclusions(mountPoint_, ex);
}

void addMountProperties(const std::string& keyPrefix, const std::string& category, const std::string& table,
                        const std::string& device, const std::string& mountPoint, const std::string& type,
                        std::map<std::string, Property>& properties) {
    auto put = [&](const std::string& key, const std::string& value, const char* label,
                   const std::string& text) {
        properties.insert_or_assign(key, Property(key, value, label, text, category));
    };
    put(keyPrefix + "FsType" + mountPoint, type, "File System",
        "Format of the file system on this partition.");
    properties.insert_or_assign("fileSystem", Property("fileSystem", type, "", "", ""));
    put(keyPrefix + "MountPoint" + mountPoint, mountPoint, "Mount Point",
        "Mount point for the entry in the " + table + ".");
    put(keyPrefix + "Name" + device, device, "Name", "Name for the entry in the " + table + ".");
}

void MTableEntry::addProperties(const std::string& categoryPrefix,
                                std::map<std::string, Property>& properties) {
    addMountProperties("MTabEntry", categoryPrefix + "MTab Entry: \"" + device_ + "\"", "mtab", device_,
                       mountPoint_, type_, properties);
}

}  // namespace vessa::target::lin
