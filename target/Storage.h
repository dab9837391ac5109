// One storage item of a target host: a whole device, a partition, a logical volume or a mounted file
// system, with its exclusions (reasons it must not be tested) and its named properties.
//
// Ownership: an item owns its children (by value, deep-copied) and its properties. The parent link
// is a plain, non-owning pointer, copied as is; the code that builds a tree sets both directions.
//
// Memory: a run on a host with tens of thousands of devices holds every item at once, each with a
// few dozen properties, so an item keeps its properties packed in key order, one after another, until
// someone asks for them as a map: properties() then unpacks them, once, into the map it returns, and
// that map is the item's properties from then on. The read accessors property() and
// forEachProperty() read either form and unpack nothing.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "target/Property.h"

namespace vessa::target {

class VESSA_API Storage {
  public:
    // A bit mask; an item's type may combine bits. 4 is tested before 1, and 1 before the logical mask.
    enum storageType : unsigned int {
        noStorage = 0,
        fileSystemStorage = 1,     // a mounted or configured file system; "targetfile.dat" is its path
        logicalDiskStorage = 2,    // logical kinds: a partition,
        physicalStorage = 4,       // a physical device
        logicalVolumeStorage = 8,  // an LVM logical volume,
        mappedDeviceStorage = 16,  // a device-mapper device
        blockDeviceStorage = 32,   // with 4: a block device as the Linux discovery reports it (36)
        logicalStorageMask = 26,   // 2 + 8 + 16
        discoveredBlockDevice = 36,
        allStorage = 31,
    };

    // Ten reasons, written in letter order A G I M P S U V W Z (not bit order) by the exclusion string.
    typedef std::uint32_t exclusions;
    static constexpr exclusions kBoot = 0x001;         // A
    static constexpr exclusions kListingZ = 0x002;     // Z
    static constexpr exclusions kReservedI = 0x004;    // I
    static constexpr exclusions kEmpty = 0x008;        // M
    static constexpr exclusions kPartitioned = 0x010;  // P
    static constexpr exclusions kNoSignature = 0x020;  // G
    static constexpr exclusions kSwap = 0x040;         // W
    static constexpr exclusions kSystem = 0x080;       // S, never overridable
    static constexpr exclusions kUser = 0x100;         // U
    static constexpr exclusions kVolumeGroup = 0x200;  // V

    // Constructor 1, used by the Linux discovery.
    Storage(const storageType& type, const std::string& name, const std::string& path,
            const unsigned long long& size, int index, const std::string& inquiry, exclusions exclusions,
            const std::map<std::string, Property>& properties);
    // The same, taking over the given map instead of copying it.
    Storage(const storageType& type, const std::string& name, const std::string& path,
            const unsigned long long& size, int index, const std::string& inquiry, exclusions exclusions,
            std::map<std::string, Property>&& properties);
    // Constructor 2, used by the legacy listing parser: the exclusions are computed from the fields.
    Storage(const storageType& type, int index, const std::string& name, const std::string& path,
            const unsigned long long& size, const std::string& inquiry, const std::string& fileSystem,
            const std::string& volumeGroupName, const std::string& scsiString,
            const std::string& exclusionText, const unsigned int& signature,
            const unsigned int& partitionCount, bool boot, bool system, bool swap, bool flipPath);
    Storage(const Storage& other);
    Storage& operator=(const Storage& other);
    ~Storage();

    const std::string& name() const { return name_; }
    const std::string& path() const { return path_; }
    const std::string& inquiry() const { return inquiry_; }
    unsigned long long size() const;
    const std::string& sortName() const;
    storageType deviceStorageType() const;
    Storage* parent() const;
    std::list<Storage> children() const;
    exclusions exclusionsList() const;
    exclusions exclusionOverrides() const;
    const std::string& exclusionString() const { return exclusionString_; }
    // The properties by key, for reading and changing; unpacks them first (see Memory above).
    std::map<std::string, Property>& properties();
    // The property stored under `key`, or null; valid until the item's properties next change, and
    // until properties() is next called (which unpacks them into the map).
    const Property* property(const std::string& key) const;
    // Calls visit(key, property) for each property, in key order.
    template <class Visit>
    void forEachProperty(Visit&& visit) const {
        if (mapped_) {
            for (const auto& [key, property] : properties_) {
                visit(key, property);
            }
        } else {
            for (const Property& property : packed_) {
                visit(property.name(), property);
            }
        }
    }
    int index() const { return index_; }

    // Tree building (discovery and listing code): appends a deep copy of `child` whose parent is this.
    void addChild(const Storage& child);
    void setParent(Storage* parent) { parent_ = parent; }

    void addProperty(const Property& p);
    void print(std::ostream& os) const;
    void printToDebug() const;
    void bringDeviceOnline() {}

    void setUserExclusion(bool excluded);
    // `overrides` is taken by reference and not changed; the system exclusion is never overridden.
    void setExclusionOverrides(exclusions& overrides);
    void resetExclusionString();

  private:
    void logCoreFields(const char* trace) const;
    // Packs the map's properties when every key is its property's name, as the makers of items give them.
    void pack();

    std::list<Storage> children_;
    exclusions exclusions_;
    exclusions overrides_;
    std::string exclusionString_;
    std::map<std::string, Property> properties_;  // the properties when mapped_, else empty
    std::vector<Property> packed_;                // the properties in name order when not mapped_
    bool mapped_ = false;
    int index_;
    std::string inquiry_;
    std::string name_;
    Storage* parent_;
    std::string path_;
    unsigned long long size_;
    std::string sortName_;
    storageType type_;
};

// The fourteen standard property descriptions, shared by every unit that builds properties.
struct VESSA_API StandardProperty {
    const char* key;
    const char* displayName;
    const char* category;
    const char* description;

    // A Property with this description and the given value.
    Property make(const std::string& value) const;
};

namespace standard {
extern VESSA_API const char* const kGeneral;  // "General"
extern VESSA_API const char* const kDebug;    // "Debug"
extern VESSA_API const StandardProperty accessType;
extern VESSA_API const StandardProperty exclusion;
extern VESSA_API const StandardProperty fileSystem;
extern VESSA_API const StandardProperty index;
extern VESSA_API const StandardProperty inquiry;
extern VESSA_API const StandardProperty label;
extern VESSA_API const StandardProperty name;
extern VESSA_API const StandardProperty path;
extern VESSA_API const StandardProperty scsiString;
extern VESSA_API const StandardProperty sectorSize;
extern VESSA_API const StandardProperty serialNumber;
extern VESSA_API const StandardProperty signature;
extern VESSA_API const StandardProperty size;
extern VESSA_API const StandardProperty volumeGroupName;
// All fourteen, in key order.
extern VESSA_API const StandardProperty* const all[14];
}  // namespace standard

}  // namespace vessa::target
