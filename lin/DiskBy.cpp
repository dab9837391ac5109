#include "lin/DiskBy.h"

#include <utility>
#include <vector>

#include "platform/Log.h"
#include "platform/view/RunScope.h"
#include "platform/view/SystemView.h"
#include "target/Host.h"

namespace vessa::target::lin {

namespace {

constexpr const char* kUnit = "lin/DiskBy.cpp";

const char* kindWord(int kind) {
    switch (kind) {
        case DiskBy::ById:
            return "id";
        case DiskBy::ByLabel:
            return "label";
        case DiskBy::ByPath:
            return "path";
        case DiskBy::ByUuid:
            return "uuid";
        default:
            return "??";
    }
}

const char* displayName(int kind) {
    switch (kind) {
        case DiskBy::ById:
            return "By ID";
        case DiskBy::ByLabel:
            return "By Label";
        case DiskBy::ByPath:
            return "By Path";
        case DiskBy::ByUuid:
            return "By UUID";
        default:
            return "By ??";
    }
}

// The alias directories, in the order they are read.
const std::pair<const char*, int> kDirectories[] = {{"/dev/disk/by-id/", DiskBy::ById},
                                                    {"/dev/disk/by-label/", DiskBy::ByLabel},
                                                    {"/dev/disk/by-path/", DiskBy::ByPath},
                                                    {"/dev/disk/by-uuid/", DiskBy::ByUuid}};

}  // namespace

DiskBy::DiskBy(const std::string& target, const std::string& alias, int kind)
    : target_(target), kind_(kind), alias_(alias) {
    const std::string::size_type up = target_.find("../../");
    if (up != std::string::npos) {
        target_.replace(up, 6, "/dev/");
    }
}

void DiskBy::readEntries(const std::string& directory, std::list<DiskBy*>& result, Host* host, int kind) {
    std::list<vessa::hax::FSItem> items;
    host->fill(directory, items);
    for (const vessa::hax::FSItem& item : items) {
        std::string target;
        if (sal::sys::current().readLink(directory + item.name(), target, 512) && !target.empty()) {
            result.push_back(new DiskBy(target, item.name(), kind));
        }
    }
}

void DiskBy::readAhead() {
    std::vector<std::string> directories;
    for (const auto& [directory, kind] : kDirectories) {
        directories.push_back(directory);
    }
    sal::sys::RunScope::readAhead(std::move(directories), {{sal::sys::RunScope::Ahead::Links, ""}});
}

bool DiskBy::readDisksBy(std::list<DiskBy*>& result, Host* host) {
    VESSA_TRACE(kUnit, "readDisksBy");
    std::list<DiskBy*> found;
    for (const auto& [directory, kind] : kDirectories) {
        readEntries(directory, found, host, kind);
    }
    for (const DiskBy* d : found) {
        VESSA_LOG << "Alias by " << kindWord(d->kind()) << ": " << d->alias() << " -> " << d->target();
    }
    result.splice(result.end(), found);
    return true;
}

void DiskBy::getExclusions(Storage::exclusions& /*ex*/) {}

void DiskBy::addProperties(const std::string& keySuffix, std::map<std::string, Property>& properties) {
    const std::string key = std::string("Alias") + displayName(kind_) + keySuffix;
    properties.insert_or_assign(key,
                                Property(key, alias_, displayName(kind_),
                                         "Alias by which the device may be known to the system.", "Aliases"));
}

}  // namespace vessa::target::lin
