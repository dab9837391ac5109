#include "lin/FsTableEntry.h"

#include <sstream>

#include "lin/FileSystemTypes.h"
#include "lin/MTableEntry.h"
#include "platform/Log.h"
#include "platform/Str.h"
#include "platform/view/SystemView.h"

namespace vessa::target::lin {

namespace {

constexpr const char* kUnit = "lin/FsTableEntry.cpp";

// Cuts `rest` at its first blank: what is before it is returned, what follows it (trimmed) is kept.
std::string cut(std::string& rest) {
    const std::string::size_type blank = rest.find(' ');
    std::string head = rest.substr(0, blank);
    rest = blank == std::string::npos ? std::string() : util::str::trim(rest.substr(blank + 1));
    return head;
}

}  // namespace

FsTableEntry::FsTableEntry(const std::string& mountPoint, const std::string& deviceName,
                           const std::string& fileSystemType, bool queried)
    : type_(fileSystemType), mountPoint_(mountPoint), device_(deviceName), queried_(queried) {
    // The configured-table entry keeps the wording it has always logged.
    VESSA_LOG_AT(kUnit, "FsTableEntry.ctor")
        << "Logical Volume \"" << device_ << "\" mounted at \"" << mountPoint_ << "\" formatted as " << type_;
}

void FsTableEntry::parse(const std::string& text, std::list<FsTableEntry*>& result) {
    VESSA_TRACE(kUnit, "readFsTab");
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::string rest = line;
        const std::string device = cut(rest);
        const std::string mountPoint = cut(rest);
        const std::string type = cut(rest);
        sal::sys::FsStatus fs;
        const bool queried = !mountPoint.empty() && sal::sys::current().fsStatus(mountPoint, fs);
        if (queried) {
            VESSA_LOG << "f_type: " << fs.type;
            VESSA_LOG << "f_bsize: " << fs.bsize;
            VESSA_LOG << "f_blocks: " << fs.blocks;
            VESSA_LOG << "f_bfree: " << fs.bfree;
            VESSA_LOG << "f_bavail: " << fs.bavail;
            VESSA_LOG << "f_files: " << fs.files;
            VESSA_LOG << "f_ffree: " << fs.ffree;
            VESSA_LOG << "f_namelen: " << fs.namelen;
            const std::string name = fileSystemName(fs.type);
            VESSA_LOG << "File system at " << mountPoint << ": " << (name.empty() ? "unknown" : name);
        }
        result.push_back(new FsTableEntry(mountPoint, device, type, queried));
    }
}

bool FsTableEntry::readFsTab(std::list<FsTableEntry*>& result, Host* /*host*/) {
    VESSA_TRACE(kUnit, "readFsTab");
    std::string text;
    if (!sal::sys::current().readFile("/etc/fstab", text)) {
        return false;
    }
    parse(text, result);
    return true;
}

void FsTableEntry::getExclusions(Storage::exclusions& ex) {
    mountPointExclusions(mountPoint_, ex);
}

void FsTableEntry::addProperties(const std::string& categoryPrefix,
                                 std::map<std::string, Property>& properties) {
    addMountProperties("FsEntry", categoryPrefix + "FS Entry: \"" + device_ + "\"", "fstab", device_,
                       mountPoint_, type_, properties);
}

}  // namespace vessa::target::lin
