#include "target/Storage.h"

#include <algorithm>
#include <new>

#include "platform/Log.h"
#include "platform/Path.h"
#include "platform/Str.h"

namespace vessa::target {

namespace {

constexpr const char* kUnit = "Storage.cpp";
const char* const kTargetFile = "targetfile.dat";

// Columns of the exclusion string, in letter order; the bits are not in that order.
struct Column {
    Storage::exclusions bit;
    char letter;
};
constexpr Column kColumns[10] = {
    {Storage::kBoot, 'A'},     {Storage::kNoSignature, 'G'}, {Storage::kReservedI, 'I'},
    {Storage::kEmpty, 'M'},    {Storage::kPartitioned, 'P'}, {Storage::kSystem, 'S'},
    {Storage::kUser, 'U'},     {Storage::kVolumeGroup, 'V'}, {Storage::kSwap, 'W'},
    {Storage::kListingZ, 'Z'},
};
constexpr std::string::size_type kUserColumn = 6;

bool wantsTargetFile(Storage::storageType type, const std::string& path) {
    return type == Storage::fileSystemStorage && path.find('/') != std::string::npos &&
           path.find(kTargetFile) == std::string::npos;
}

}  // namespace

namespace standard {
const char* const kGeneral = "General";
const char* const kDebug = "Debug";
const StandardProperty accessType{"accessType", "Access Type", "Debug",
                                  "Means by which the system accesses the device."};
const StandardProperty exclusion{
    "exclusion", "Exclusion(s)", "General",
    "Reasons the target is excluded from testing. Most exclusions can be overridden. "
    "Non-file system targets cannot override the system exclusion."};
const StandardProperty fileSystem{"fileSystem", "File System", "General",
                                  "File system for which the device is formatted (ex: NTFS, ext2/3)."};
const StandardProperty index{"index", "Index", "Debug", "Index of the device as seen by Korvo."};
const StandardProperty inquiry{
    "inquiry", "Inquiry", "General",
    "Device inquiry. In the case of partitions, this is the inquiry of the parent device."};
const StandardProperty label{"label", "Label", "General", "User created device label."};
const StandardProperty name{"name", "Name", "General", "User friendly description of the device."};
const StandardProperty path{"path", "Path", "General", "Path by which the system accesses the device."};
const StandardProperty scsiString{"scsiString", "SCSI Address", "General",
                                  "SCSI address of the device on the system."};
const StandardProperty sectorSize{"sectorSize", "Block Size", "General",
                                  "Sector or block size for the device."};
const StandardProperty serialNumber{"serialNumber", "Serial Number", "General",
                                    "Vendor assigned serial number for the device."};
const StandardProperty signature{"signature", "Signature", "General",
                                 "Device signature as assigned by Windows."};
const StandardProperty size{"size", "Size", "General", "Size, in byte, of the device."};
const StandardProperty volumeGroupName{"volumeGroupName", "Volume Group", "Debug",
                                       "Name of the volume group to which the device belongs."};
const StandardProperty* const all[14] = {&accessType,   &exclusion, &fileSystem, &index,          &inquiry,
                                         &label,        &name,      &path,       &scsiString,     &sectorSize,
                                         &serialNumber, &signature, &size,       &volumeGroupName};
}  // namespace standard

Property StandardProperty::make(const std::string& value) const {
    return Property(key, value, displayName, description, category);
}

Storage::Storage(const storageType& type, const std::string& name, const std::string& path,
                 const unsigned long long& size, int index, const std::string& inquiry, exclusions exclusions,
                 const std::map<std::string, Property>& properties)
    : Storage(type, name, path, size, index, inquiry, exclusions,
              std::map<std::string, Property>(properties)) {}

Storage::Storage(const storageType& type, const std::string& name, const std::string& path,
                 const unsigned long long& size, int index, const std::string& inquiry, exclusions exclusions,
                 std::map<std::string, Property>&& properties)
    : exclusions_(exclusions),
      overrides_(0),
      index_(index),
      inquiry_(inquiry),
      name_(name),
      parent_(nullptr),
      size_(size),
      type_(type) {
    VESSA_TRACE(kUnit, "Storage::Storage [1]");
    mapped_ = true;
    sal::fs::Path p(path);
    if (wantsTargetFile(type, path)) {
        p.join(kTargetFile);
    }
    path_ = p.str();
    if (index >= 0) {
        VESSA_LOG << "Index: " << index;
        addProperty(standard::index.make(util::str::from(index)));
    }
    logCoreFields(vessa_trace_.name());
    for (const auto& [key, property] : properties) {
        VESSA_LOG << "property " << key << " = " << property.value();
    }
    // The given entries replace same-named ones made above; the map's nodes are taken over, not copied.
    properties.merge(properties_);
    properties_.swap(properties);
    addProperty(standard::name.make(name_));
    addProperty(standard::path.make(path_));
    addProperty(standard::size.make(util::str::from(size_)));
    addProperty(standard::inquiry.make(inquiry_));
    resetExclusionString();
    addProperty(standard::exclusion.make(exclusionString_));
    pack();
}

Storage::Storage(const storageType& type, int index, const std::string& name, const std::string& path,
                 const unsigned long long& size, const std::string& inquiry, const std::string& fileSystem,
                 const std::string& volumeGroupName, const std::string& scsiString,
                 const std::string& exclusionText, const unsigned int& signature,
                 const unsigned int& partitionCount, bool boot, bool system, bool swap, bool flipPath)
    : exclusions_(0),
      overrides_(0),
      index_(index),
      inquiry_(inquiry),
      name_(name),
      parent_(nullptr),
      size_(size),
      type_(type) {
    VESSA_TRACE(kUnit, "Storage::Storage [2]");
    path_ = path;
    if (wantsTargetFile(type, path)) {
        sal::fs::Path p(path);
        p.join(kTargetFile);
        path_ = flipPath ? p.flipTo() : p.str();
    }
    logCoreFields(vessa_trace_.name());

    exclusions found = 0;
    if (boot) {
        found |= kBoot;
    }
    if (exclusionText.find('Z') != std::string::npos) {
        found |= kListingZ;
    }
    if (size < 512) {
        found |= kEmpty;
    }
    if (partitionCount != 0) {
        found |= kPartitioned;
    }
    if (signature == 0 && index < 0) {
        found |= kNoSignature;
    }
    if (swap) {
        found |= kSwap;
    }
    if (system) {
        found |= kSystem;
    }
    if (!volumeGroupName.empty()) {
        found |= kVolumeGroup;
    }
    exclusions_ = found;
    resetExclusionString();

    packed_.reserve(11);  // the eleven below, without a new array for each (listings of a million lines)
    addProperty(standard::name.make(name_));
    addProperty(standard::path.make(path_));
    addProperty(standard::size.make(util::str::from(size_)));
    addProperty(standard::inquiry.make(inquiry_));
    addProperty(standard::index.make(util::str::from(index_)));
    addProperty(standard::fileSystem.make(fileSystem));
    addProperty(standard::volumeGroupName.make(volumeGroupName));
    addProperty(standard::scsiString.make(scsiString));
    addProperty(standard::signature.make(util::str::from(signature)));
    addProperty(standard::exclusion.make(exclusionString_));
    const char* access = (type & physicalStorage) ? "0" : (type & logicalStorageMask) ? "1" : "2";
    addProperty(standard::accessType.make(access));
}

void Storage::logCoreFields(const char* trace) const {
    VESSA_LOG_AT(kUnit, trace) << "Name: " << name_;
    VESSA_LOG_AT(kUnit, trace) << "Path: " << path_;
    VESSA_LOG_AT(kUnit, trace) << "Size: " << size_;
    VESSA_LOG_AT(kUnit, trace) << "Inquiry: " << inquiry_;
}

Storage::Storage(const Storage& other)
    : children_(other.children_),
      exclusions_(other.exclusions_),
      overrides_(other.overrides_),
      exclusionString_(other.exclusionString_),
      properties_(other.properties_),
      packed_(other.packed_),
      mapped_(other.mapped_),
      index_(other.index_),
      inquiry_(other.inquiry_),
      name_(other.name_),
      parent_(other.parent_),
      path_(other.path_),
      size_(other.size_),
      sortName_(other.sortName_),
      type_(other.type_) {}

Storage& Storage::operator=(const Storage& other) {
    if (this != &other) {
        // Copy first: `other` may live inside this item's own subtree.
        Storage copy(other);
        this->~Storage();
        new (this) Storage(std::move(copy));
    }
    return *this;
}

Storage::~Storage() {
    VESSA_TRACE(kUnit, "Storage::~Storage");
    VESSA_LOG << "Destructing \"" << name_ << "\"";
}

unsigned long long Storage::size() const {
    VESSA_TRACE(kUnit, "Storage::size");
    return size_;
}

const std::string& Storage::sortName() const {
    VESSA_TRACE(kUnit, "Storage::sortName");
    return sortName_;
}

Storage::storageType Storage::deviceStorageType() const {
    VESSA_TRACE(kUnit, "Storage::deviceStorageType");
    return type_;
}

Storage* Storage::parent() const {
    VESSA_TRACE(kUnit, "Storage::parent");
    return parent_;
}

std::list<Storage> Storage::children() const {
    VESSA_TRACE(kUnit, "Storage::children");
    return children_;
}

Storage::exclusions Storage::exclusionsList() const {
    VESSA_TRACE(kUnit, "Storage::exclusionsList");
    return exclusions_;
}

Storage::exclusions Storage::exclusionOverrides() const {
    VESSA_TRACE(kUnit, "Storage::exclusionOverrides");
    return overrides_;
}

void Storage::addChild(const Storage& child) {
    VESSA_TRACE(kUnit, "Storage::addChild");
    children_.push_back(child);
    children_.back().parent_ = this;
}

namespace {
std::vector<Property>::const_iterator byName(const std::vector<Property>& packed, const std::string& name) {
    return std::lower_bound(packed.begin(), packed.end(), name,
                            [](const Property& p, const std::string& n) { return p.name() < n; });
}
}  // namespace

void Storage::pack() {
    for (const auto& [key, property] : properties_) {
        if (key != property.name()) {
            return;
        }
    }
    packed_.reserve(properties_.size());
    for (auto& entry : properties_) {
        packed_.push_back(std::move(entry.second));
    }
    properties_.clear();
    mapped_ = false;
}

std::map<std::string, Property>& Storage::properties() {
    if (!mapped_) {
        for (Property& p : packed_) {
            properties_.emplace_hint(properties_.end(), p.name(), std::move(p));
        }
        std::vector<Property>().swap(packed_);
        mapped_ = true;
    }
    return properties_;
}

const Property* Storage::property(const std::string& key) const {
    if (mapped_) {
        const auto it = properties_.find(key);
        return it == properties_.end() ? nullptr : &it->second;
    }
    const auto it = byName(packed_, key);
    return it != packed_.end() && it->name() == key ? &*it : nullptr;
}

void Storage::addProperty(const Property& p) {
    VESSA_TRACE(kUnit, "Storage::addProperty");
    if (mapped_) {
        properties_.insert_or_assign(p.name(), p);
        return;
    }
    const auto at = packed_.begin() + (byName(packed_, p.name()) - packed_.cbegin());
    if (at != packed_.end() && at->name() == p.name()) {
        *at = p;
        return;
    }
    // One more place, not the doubling a vector grows by: most items get a property or two after they
    // are made, and keep them for the whole run.
    const auto offset = at - packed_.begin();
    packed_.reserve(packed_.size() + 1);
    packed_.insert(packed_.begin() + offset, p);
}

void Storage::print(std::ostream& os) const {
    VESSA_TRACE(kUnit, "Storage::print");
    std::string tableName = path_;
    if (type_ & fileSystemStorage) {
        tableName += "_fs";
    }
    Property::cleanForXmlElement(tableName);
    forEachProperty([&](const std::string&, const Property& property) { property.print(os, tableName); });
}

void Storage::printToDebug() const {
    VESSA_TRACE(kUnit, "Storage::printToDebug");
    VESSA_LOG << "====================================";
    VESSA_LOG << "Name:         " << name_;
    VESSA_LOG << "Sort Name:    " << sortName_;
    VESSA_LOG << "Path:         " << path_;
    VESSA_LOG << "Inquiry:      " << inquiry_;
    VESSA_LOG << "Index:        " << index_;
    VESSA_LOG << "Size:         " << size_;
    VESSA_LOG << "Exclusions:   " << exclusionString_;
    VESSA_LOG << "Storage Type: " << static_cast<unsigned int>(type_);
    VESSA_LOG << "Properties:";
    forEachProperty([](const std::string& key, const Property& property) {
        VESSA_LOG_AT(kUnit, "Storage::printToDebug") << "    " << key << ": " << property.value();
    });
    VESSA_LOG << "====================================";
}

void Storage::resetExclusionString() {
    VESSA_TRACE(kUnit, "Storage::resetExclusionString");
    VESSA_LOG << "Exclusions: " << exclusions_;
    VESSA_LOG << "Overrides : " << overrides_;
    const exclusions effective = exclusions_ & ~overrides_;
    VESSA_LOG << "Filtered  : " << effective;
    if (effective != 0) {
        std::string s;
        for (const Column& c : kColumns) {
            s += (effective & c.bit) ? c.letter : ' ';
        }
        exclusionString_ = s;
        VESSA_LOG << "Exclusion string \"" << exclusionString_ << "\"";
    } else {
        VESSA_LOG << "No exclusions";
        exclusionString_ = std::string(10, ' ');
    }
}

void Storage::setExclusionOverrides(exclusions& overrides) {
    VESSA_TRACE(kUnit, "Storage::setExclusionOverrides");
    VESSA_LOG << "Current exclusion string: \"" << exclusionString_ << "\"";
    const bool userMarked = exclusionString_.size() > kUserColumn && exclusionString_[kUserColumn] == 'U';
    VESSA_LOG << "Checked for 'U'";
    overrides_ = overrides & ~kSystem;
    resetExclusionString();
    if (userMarked) {
        setUserExclusion(true);
    }
}

void Storage::setUserExclusion(bool excluded) {
    VESSA_TRACE(kUnit, "Storage::setUserExclusion");
    // The user mark lives in the string only; the bit set is left alone.
    exclusionString_[kUserColumn] = excluded ? 'U' : ' ';
}

}  // namespace vessa::target
