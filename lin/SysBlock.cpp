#include "lin/SysBlock.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "lin/ProcPartition.h"
#include "platform/Log.h"
#include "platform/Stat.h"
#include "platform/Str.h"
#include "platform/view/RunScope.h"
#include "platform/view/SystemView.h"
#include "target/Host.h"

namespace vessa::target::lin {

namespace str = util::str;

namespace {

constexpr const char* kUnit = "lin/SysBlock.cpp";
const std::string kSysBlock = "/sys/block/";

// The first line of `file`, without its end; nullopt when the file cannot be read.
std::optional<std::string> firstLineOf(const std::string& file) {
    std::string text;
    if (!sal::sys::current().readFile(file, text)) {
        return std::nullopt;
    }
    text.erase(std::min(text.find('\n'), text.size()));
    return text;
}

// The first line of an attribute file; false when the file cannot be read or that line is empty.
bool firstLine(const std::string& file, std::string& line) {
    std::optional<std::string> first = firstLineOf(file);
    if (!first) {
        return false;
    }
    line = std::move(*first);
    return !line.empty();
}

// What the constructor reads of each device, in its order (a partition's own files are found only by
// listing the device), for the view to read ahead while the run works on the devices before.
const std::vector<sal::sys::RunScope::Ahead> kDeviceReads = {
    {sal::sys::RunScope::Ahead::Directory, ""},
    {sal::sys::RunScope::Ahead::File, "/dev"},
    {sal::sys::RunScope::Ahead::Directory, "/device"},
    {sal::sys::RunScope::Ahead::File, "/device/model"},
    {sal::sys::RunScope::Ahead::Directory, "/holders"},
    {sal::sys::RunScope::Ahead::File, "/range"},
    {sal::sys::RunScope::Ahead::File, "/removable"},
    {sal::sys::RunScope::Ahead::File, "/device/rev"},
    {sal::sys::RunScope::Ahead::File, "/device/scsi_level"},
    {sal::sys::RunScope::Ahead::File, "/size"},
    {sal::sys::RunScope::Ahead::Directory, "/slaves"},
    {sal::sys::RunScope::Ahead::File, "/device/vendor"},
    // Not the constructor's: the transport state the run checks before it probes the device.
    {sal::sys::RunScope::Ahead::File, "/device/state"},
};

std::string names(const std::list<SysBlock*>& list) {
    std::string out;
    for (const SysBlock* s : list) {
        out += " " + s->name();
    }
    return out;
}

}  // namespace

SysBlock::SysBlock(const std::string& name) : name_(name) {}

SysBlock::SysBlock(const std::string& path, Host* host) : path_(path) {
    name_ = path.size() > kSysBlock.size() ? path.substr(kSysBlock.size()) : std::string();
    try {
        readDevFile(path);
        readDevModel(path);
        readHolders(path, host);
        readPartitions(host);
        readRange(path);
        readRemovable(path);
        readRevision(path);
        readScsiLevel(path);
        readSize(path);
        readSlaves(path, host);
        readVendor(path);
    } catch (...) {
        releaseRelated();
        throw;
    }
    if (vessa::log::enabled()) {
        VESSA_TRACE(kUnit, "SysBlock.ctor");
        dump("");
        VESSA_LOG << "    Partitions:";
        for (const SysBlock* p : partitions_) {
            p->dump("    ");
        }
    }
}

void SysBlock::releaseRelated() {
    for (SysBlock* p : partitions_) {
        p->releaseRelated();
        delete p;
    }
    for (const auto* list : {&holders_, &slaves_}) {
        for (SysBlock* s : *list) {
            delete s;
        }
    }
    partitions_.clear();
    holders_.clear();
    slaves_.clear();
}

void SysBlock::dump(const std::string& indent) const {
    const char* trace = "SysBlock.ctor";
    VESSA_LOG_AT(kUnit, trace) << indent << "Device " << name_ << " (" << major_ << ":" << minor_ << ")";
    VESSA_LOG_AT(kUnit, trace) << indent << "    Model     : " << model();
    VESSA_LOG_AT(kUnit, trace) << indent << "    Range     : " << range_;
    VESSA_LOG_AT(kUnit, trace) << indent << "    Removable : " << (removable_ ? "true" : "false");
    VESSA_LOG_AT(kUnit, trace) << indent << "    Revision  : " << revision();
    VESSA_LOG_AT(kUnit, trace) << indent << "    SCSI Lev  : " << scsiLevel();
    VESSA_LOG_AT(kUnit, trace) << indent << "    Size      : " << size_;
    VESSA_LOG_AT(kUnit, trace) << indent << "    Vendor    : " << vendor();
    VESSA_LOG_AT(kUnit, trace) << indent << "    Holders   :" << names(holders_);
    VESSA_LOG_AT(kUnit, trace) << indent << "    Slaves    :" << names(slaves_);
}

bool SysBlock::readSysFs(std::list<SysBlock*>& result, std::list<ProcPartition*>& procPartitions,
                         Host* host) {
    VESSA_TRACE(kUnit, "readSysFs");
    VESSA_LOG << "Get all the drives from /sys/block that have a corresponding entry in /proc/partitions";
    std::vector<std::string> paths;
    paths.reserve(procPartitions.size());
    for (const ProcPartition* p : procPartitions) {
        paths.push_back(kSysBlock + sal::sys::sysfsName(p->name()));
    }
    sal::sys::RunScope::readAhead(paths, kDeviceReads);
    for (const std::string& path : paths) {
        if (host->existsFSItem(path, vessa::hax::FSItem::any)) {
            result.push_back(new SysBlock(path, host));
        }
    }
    return true;
}

void SysBlock::readDevFile(const std::string& path) {
    std::string line;
    if (!firstLine(path + "/dev", line)) {
        return;
    }
    line = str::trim(line);
    const std::string::size_type colon = line.find(':');
    str::to(major_, line.substr(0, colon));
    str::to(minor_, colon == std::string::npos ? std::string() : line.substr(colon + 1));
}

const std::string& SysBlock::none() {
    static const std::string empty;
    return empty;
}

void SysBlock::readDeviceLine(const std::string& file, std::string Device::*field) {
    std::optional<std::string> first = firstLineOf(file);
    if (!first) {
        return;  // unreadable: the field stays as it was
    }
    std::string& line = *first;
    if (!line.empty() || device_) {
        if (!device_) {
            device_ = std::make_unique<Device>();
        }
        (*device_).*field = std::move(line);
    }
}

void SysBlock::readDevModel(const std::string& path) {
    readDeviceLine(path + "/device/model", &Device::model);
}
void SysBlock::readRevision(const std::string& path) {
    readDeviceLine(path + "/device/rev", &Device::revision);
}
void SysBlock::readScsiLevel(const std::string& path) {
    readDeviceLine(path + "/device/scsi_level", &Device::scsiLevel);
}
void SysBlock::readVendor(const std::string& path) {
    readDeviceLine(path + "/device/vendor", &Device::vendor);
}

void SysBlock::readRange(const std::string& path) {
    std::string line;
    if (firstLine(path + "/range", line)) {
        str::to(range_, line);
    }
}

void SysBlock::readRemovable(const std::string& path) {
    std::string line;
    if (firstLine(path + "/removable", line)) {
        int value = 0;
        str::to(value, line);
        removable_ = value != 0;
    }
}

void SysBlock::readSize(const std::string& path) {
    std::string line;
    if (firstLine(path + "/size", line)) {
        str::to(size_, line);
    }
    if (size_ == 0) {
        sal::fs::Stat node("/dev/" + name_);
        // A node that reports no block size (missing, or not a device) keeps size 0 rather than
        // dividing by it.
        if (node.blockSize() != 0) {
            size_ = static_cast<unsigned long long>(node.size() / node.blockSize());
        }
    }
}

void SysBlock::readRelated(const std::string& directory, Host* host, std::list<SysBlock*>& into) {
    if (!host->existsFSItem(directory, vessa::hax::FSItem::any)) {
        return;
    }
    std::list<vessa::hax::FSItem> items;
    host->fill(directory, items);
    for (const vessa::hax::FSItem& item : items) {
        auto* related = new SysBlock(item.name());
        related->parents_.push_back(this);
        into.push_back(related);
    }
}

void SysBlock::readHolders(const std::string& path, Host* host) {
    readRelated(path + "/holders", host, holders_);
}

void SysBlock::readSlaves(const std::string& path, Host* host) {
    readRelated(path + "/slaves", host, slaves_);
}

void SysBlock::readPartitions(Host* host) {
    std::list<vessa::hax::FSItem> items;
    host->fill(path_, items);
    for (const vessa::hax::FSItem& item : items) {
        const std::string& entry = item.name();
        if (entry.size() <= name_.size() || entry.compare(0, name_.size(), name_) != 0) {
            continue;
        }
        auto* partition = new SysBlock(entry);
        partition->parents_.push_back(this);
        partitions_.push_back(partition);
        const std::string partitionPath = path_ + "/" + entry;
        partition->path_ = partitionPath;
        partition->readDevFile(partitionPath);
        partition->readDevModel(partitionPath);
        partition->readHolders(partitionPath, host);
        partition->readRange(partitionPath);
        partition->readRemovable(partitionPath);
        partition->readRevision(partitionPath);
        partition->readScsiLevel(partitionPath);
        partition->readSize(partitionPath);
        partition->readSlaves(partitionPath, host);
        partition->readVendor(partitionPath);
    }
}

void SysBlock::getExclusions(Storage::exclusions& ex) {
    if (size_ == 0) {
        ex |= Storage::kEmpty;
    }
}

void SysBlock::addProperties(const std::string& categoryPrefix, std::map<std::string, Property>& properties) {
    const std::string category = categoryPrefix + "/sys/block/" + name_;
    auto put = [&](const char* key, const char* label, const std::string& value, const char* description) {
        properties.insert_or_assign(key, Property(key, value, label, description, category));
    };
    put("SysBlockName", "Name", name_, "Name of the connected /sys/block entry.");
    put("SysBlockMajorNumber", "Major Number", str::from(major_),
        "Major Number as found in /sys/block/<dev>/dev file.");
    put("SysBlockMinorNumber", "Minor Number", str::from(minor_),
        "Minor Number as found in /sys/block/<dev>/dev file");
    put("SysBlockModel", "Model", model(), "Vendor's description of the device model this represents.");
    put("SysBlockRange", "Range", str::from(range_), "Value from the /sys/block/<dev>/range file.");
    put("SysBlockRemovable", "Removable", removable_ ? "true" : "false",
        "If true, the device is or contains removable media.");
    put("SysBlockRevision", "Revision", revision(), "Device revision as assigned by the vendor.");
    put("SysBlockScsiLevel", "SCSI Level", scsiLevel(), "SCSI Level identified by the device.");
    put("SysBlockSize", "Size", str::from(size_), "Size of the device.");
    put("SysBlockVendor", "Vendor", vendor(), "Vendor of the attached device.");
}

}  // namespace vessa::target::lin
