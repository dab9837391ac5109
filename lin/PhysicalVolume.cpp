#include "lin/PhysicalVolume.h"

#include "lin/LvmDisplay.h"
#include "lin/common.h"
#include "platform/Log.h"

namespace vessa::target::lin {

namespace {
constexpr const char* kUnit = "lin/PhysicalVolume.cpp";
}

PhysicalVolume::PhysicalVolume(const std::string& name, const std::string& allocatable,
                               const std::string& allocatedPE, const std::string& freePE,
                               const std::string& peSize, const std::string& pvSize,
                               const std::string& totalPE, const std::string& uuid, const std::string& vgName)
    : name_(name),
      allocatable_(allocatable),
      allocatedPE_(allocatedPE),
      freePE_(freePE),
      peSize_(peSize),
      pvSize_(pvSize),
      totalPE_(totalPE),
      uuid_(uuid),
      vgName_(vgName) {}

void PhysicalVolume::parse(const std::string& output, std::list<PhysicalVolume*>& result) {
    // Slot order: the name, then the keys in the order they are tested.
    static const std::vector<LvmKey> keys = {{"PV Name", "PV Name"},
                                             {"VG Name", "VG Name"},
                                             {"PV Size", "PV Size"},
                                             {"Allocatable", "Allocatable"},
                                             {"PE Size (KByte)", "PE Size (KByte)"},
                                             {"Total PE", "Total PE"},
                                             {"Free PE", "Free PE"},
                                             {"Allocated PE", "Allocated PE"},
                                             {"PV UUID", "PV UUID"}};
    walkLvmDisplay(
        output, keys,
        [&](std::vector<std::string>& f) {
            result.push_back(new PhysicalVolume(f[0], f[3], f[7], f[6], f[4], f[2], f[5], f[8], f[1]));
        },
        [&](const std::string& name) { VESSA_LOG_AT(kUnit, "readPvDisplay") << "Current PV: " << name; });
}

bool PhysicalVolume::readPvDisplay(std::list<PhysicalVolume*>& result, Host* /*host*/) {
    VESSA_TRACE(kUnit, "readPvDisplay");
    std::string output;
    if (quickRun("pvdisplay", {}, output) == 255) {
        return true;
    }
    parse(output, result);
    return true;
}

void PhysicalVolume::getExclusions(Storage::exclusions& /*ex*/) {}

void PhysicalVolume::addProperties(const std::string& categoryPrefix,
                                   std::map<std::string, Property>& properties) {
    const std::string category = categoryPrefix + "Physical Volume \"" + name_ + "\"";
    auto put = [&](const char* key, const char* label, const std::string& value, const char* description) {
        properties.insert_or_assign(key, Property(key, value, label, description, category));
    };
    put("PVName", "Name", name_, "Name of the associated physical volume.");
    put("PVAllocatable", "Allocatable", allocatable_,
        "Indicates wether or not the physical volume is available for allocation.");
    put("PVAllocatedPE", "Allocated PE", allocatedPE_,
        "Physical extents currently allocated on this device.");
    put("PVFreePE", "Free PE", freePE_, "Free number of physical extents.");
    put("PVPESize", "PE Size", peSize_, "Physical extent size in kilobytes.");
    put("PVPVSize", "PV Size", pvSize_, "Physical volume size in kilobytes.");
    put("PVTotalPE", "Total PE", totalPE_, "Total number of physical extents.");
    put("PVUUID", "UUID", uuid_, "Unique identifier assigned to the physical volume.");
    put("PVVGName", "VG Name", vgName_, "Name of the volume group that contains this physical volume.");
}

}  // namespace vessa::target::lin
