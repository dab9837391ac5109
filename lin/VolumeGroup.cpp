#include "lin/VolumeGroup.h"

#include "lin/LvmDisplay.h"
#include "lin/common.h"
#include "platform/Log.h"

namespace vessa::target::lin {

namespace {
constexpr const char* kUnit = "lin/VolumeGroup.cpp";
}

VolumeGroup::VolumeGroup(const std::vector<std::string>& values) : values_(values) {
    values_.resize(FieldCount);
}

void VolumeGroup::parse(const std::string& output, std::list<VolumeGroup*>& result) {
    struct Key {
        const char* text;
        Field field;
    };
    // The order in which lines are tested.
    static const Key order[] = {{"VG Name", Name},
                                {"System ID", SystemID},
                                {"Format", Format},
                                {"Metadata Areas", MetadataAreas},
                                {"Metadata Sequence No", MetadataSeqNo},
                                {"VG Access", Access},
                                {"VG Status", Status},
                                {"MAX LV", MaximumLV},
                                {"Cur LV", CurrentLV},
                                {"Open LV", OpenLV},
                                {"Max PV", MaximumPV},
                                {"Cur PV", CurrentPV},
                                {"Act PV", ActualPV},
                                {"VG Size", Size},
                                {"PE Size", PESize},
                                {"Total PE", TotalPE},
                                {"Alloc PE / Size", AllocPE},
                                {"Free PE / Size", FreePE},
                                {"VG UUID", Uuid}};
    std::vector<LvmKey> keys;
    for (const Key& k : order) {
        keys.push_back({k.text, k.text});
    }
    walkLvmDisplay(
        output, keys,
        [&](std::vector<std::string>& slots) {
            std::vector<std::string> values(FieldCount);
            for (std::size_t i = 0; i < slots.size(); ++i) {
                values[order[i].field] = slots[i];
            }
            result.push_back(new VolumeGroup(values));
        },
        [&](const std::string& name) { VESSA_LOG_AT(kUnit, "readVgDisplay") << "Current VG: " << name; });
}

bool VolumeGroup::readVgDisplay(std::list<VolumeGroup*>& result, Host* /*host*/) {
    VESSA_TRACE(kUnit, "readVgDisplay");
    std::string output;
    if (quickRun("vgdisplay", {}, output) == 255) {
        return true;
    }
    parse(output, result);
    return true;
}

void VolumeGroup::getExclusions(Storage::exclusions& ex) {
    ex |= Storage::kVolumeGroup;
}

void VolumeGroup::addProperties(const std::string& categoryPrefix,
                                std::map<std::string, Property>& properties) {
    const std::string category = categoryPrefix + "Volume Group: " + name();
    auto put = [&](const char* key, const char* label, Field f, const char* description) {
        properties.insert_or_assign(key, Property(key, values_[f], label, description, category));
    };
    put("VGName", "Name", Name, "Name of the volume group.");
    put("VGActualPV", "Actual PV", ActualPV, "Actual number of physical volumes.");
    put("VGAllocPE", "Allocated PE", AllocPE, "Allocated number of physical extents for this volume group.");
    put("VGCurrentLV", "Current LV", CurrentLV, "Current number of logical volumes.");
    put("VGCurrentPV", "Current PV", CurrentPV, "Current number of physical volumes.");
    put("VGFormat", "Format", Format, "LVM format of the volume group.");
    put("VGFreePE", "Free PE", FreePE, "Free number of physical extents for this volume group.");
    put("VGMaximumLV", "Maximum LV", MaximumLV, "Maximum number of logical volumes.");
    put("VGMaximumPV", "Maximum PV", MaximumPV, "Maximum number of physical volumes.");
    put("VGMetadataAreas", "Metadata Areas", MetadataAreas, "Number of metadata areas in the volume group.");
    put("VGMetadataSeqNo", "Metadata seq no", MetadataSeqNo, "Metadata sequence number?");
    put("VGOpenLV", "Open LV", OpenLV, "Open count of all logical volumes in this volume group.");
    put("VGPESize", "PE Size", PESize, "Physical extent size.");
    put("VGSystemID", "System ID", SystemID, "System Id.");
    put("VGTotalPE", "Total PE", TotalPE, "Total physical extents");
    put("VGUUID", "UUID", Uuid, "UUID of the volume group.");
    put("VGAccess", "Access", Access, "Volume group access");
    put("VGSize", "Size", Size, "Size of the volume group in kilobytes.");
    put("VGStatus", "VG Status", Status, "Status of the volume group.");
}

}  // namespace vessa::target::lin
