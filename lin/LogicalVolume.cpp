#include "lin/LogicalVolume.h"

#include "lin/LvmDisplay.h"
#include "lin/common.h"
#include "platform/Log.h"
#include "platform/Str.h"

namespace vessa::target::lin {

namespace str = util::str;

namespace {
constexpr const char* kUnit = "lin/LogicalVolume.cpp";
constexpr std::size_t kBlockDevice = LogicalVolume::FieldCount;  // the extra slot of the line walk
}  // namespace

LogicalVolume::LogicalVolume(const std::vector<std::string>& values, int major, int minor)
    : values_(values), major_(major), minor_(minor) {
    values_.resize(FieldCount);
}

std::string LogicalVolume::deviceName() const {
    const std::string& n = values_[Name];
    if (n.find('/') != std::string::npos || values_[VgName].empty()) {
        return n;
    }
    return values_[VgName] + "/" + n;
}

void LogicalVolume::parse(const std::string& output, std::list<LogicalVolume*>& result) {
    struct Key {
        LvmKey key;
        std::size_t slot;
    };
    // The order in which lines are tested. "# open" is recognised by its text but its value is taken
    // after "#open", a key that never occurs: the value is then the line from its fifth character on.
    static const Key order[] = {{{"LV Name", "LV Name"}, Name},
                                {{"VG Name", "VG Name"}, VgName},
                                {{"LV UUID", "LV UUID"}, Uuid},
                                {{"LV Write Access", "LV Write Access"}, WriteAccess},
                                {{"LV Status", "LV Status"}, Status},
                                {{"# open", "#open"}, OpenCount},
                                {{"LV Size", "LV Size"}, Size},
                                {{"Current LE", "Current LE"}, CurrentLE},
                                {{"Segments", "Segments"}, Segments},
                                {{"Allocation", "Allocation"}, Allocation},
                                {{"Read ahead sectors", "Read ahead sectors"}, ReadAhead},
                                {{"Block device", "Block device"}, kBlockDevice}};
    std::vector<LvmKey> keys;
    for (const Key& k : order) {
        keys.push_back(k.key);
    }
    walkLvmDisplay(
        output, keys,
        [&](std::vector<std::string>& slots) {
            std::vector<std::string> values(FieldCount + 1);
            for (std::size_t i = 0; i < slots.size(); ++i) {
                values[order[i].slot] = slots[i];
            }
            int major = 0, minor = 0;
            const std::string& block = values[kBlockDevice];
            if (!block.empty()) {
                const std::string::size_type colon = block.find(':');
                str::to(major, block.substr(0, colon));
                str::to(minor, colon == std::string::npos ? std::string() : block.substr(colon + 1));
            }
            values.resize(FieldCount);
            result.push_back(new LogicalVolume(values, major, minor));
        },
        [&](const std::string& name) { VESSA_LOG_AT(kUnit, "readLvDisplay") << "Current LV: " << name; });
}

bool LogicalVolume::readLvDisplay(std::list<LogicalVolume*>& result, Host* /*host*/) {
    VESSA_TRACE(kUnit, "readLvDisplay");
    std::string output;
    if (quickRun("lvdisplay", {}, output) == 255) {
        return true;
    }
    parse(output, result);
    return true;
}

void LogicalVolume::getExclusions(Storage::exclusions& /*ex*/) {}

void LogicalVolume::addProperties(const std::string& categoryPrefix,
                                  std::map<std::string, Property>& properties) {
    const std::string category = categoryPrefix + "LV " + name();
    auto put = [&](const char* key, const char* label, const std::string& value, const char* description) {
        properties.insert_or_assign(key, Property(key, value, label, description, category));
    };
    put("LVName", "Name", values_[Name], "Name of the logical volume");
    put("LVMajor", "Major Number", str::from(major_), "Major number for the logical volume.");
    put("LVMinor", "Minor Number", str::from(minor_), "Minor number for the logical volume.");
    put("LVAllocation", "Allocation", values_[Allocation], "Allocation policy of the logical volume.");
    put("LVCurrentLE", "Current LE", values_[CurrentLE],
        "Current logical extents associated to logical volume.");
    put("LVSize", "Size", values_[Size], "Logical volume size in kilobytes.");
    put("LVOpenCount", "Open Count", values_[OpenCount], "Open count of the logical volume.");
    put("LVRAS", "Read Ahead Sectors", values_[ReadAhead], "Read ahead sectors of logical volume.");
    put("LVSegments", "Segments", values_[Segments], "Segments in the logical volume.");
    put("LVStatus", "Status", values_[Status], "Status of the logical volume.");
    put("LVUUID", "UUID", values_[Uuid], "Internal unique identifier for the logical volume.");
    put("LVVGName", "Volume Group Name", values_[VgName],
        "Name of the volume group of which this logical volume is a part.");
    put("LVWriteAccess", "Write Access", values_[WriteAccess],
        "Read/Write access currently available for the logical volume.");
}

}  // namespace vessa::target::lin
