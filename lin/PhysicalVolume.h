// An LVM physical volume as pvdisplay prints it. Values are kept as the text the tool printed.
#pragma once

#include <list>
#include <map>
#include <string>

#include "target/Property.h"
#include "target/Storage.h"

namespace vessa::target {
class Host;
}

namespace vessa::target::lin {

class PhysicalVolume {
  public:
    // In the order of the keys: name, allocatable, allocated PE, free PE, PE size (KByte), PV size,
    // total PE, UUID, volume group name.
    PhysicalVolume(const std::string& name, const std::string& allocatable, const std::string& allocatedPE,
                   const std::string& freePE, const std::string& peSize, const std::string& pvSize,
                   const std::string& totalPE, const std::string& uuid, const std::string& vgName);

    // Runs pvdisplay on the local machine and appends its volumes; always returns true. A tool that
    // cannot be run yields nothing.
    static bool readPvDisplay(std::list<PhysicalVolume*>& result, Host* host);
    static void parse(const std::string& output, std::list<PhysicalVolume*>& result);

    void getExclusions(Storage::exclusions& ex);
    void addProperties(const std::string& categoryPrefix, std::map<std::string, Property>& properties);

    // Without "/dev/"; a device-mapper volume as "mapper/<name>".
    const std::string& name() const { return name_; }
    const std::string& allocatable() const { return allocatable_; }
    const std::string& allocatedPE() const { return allocatedPE_; }
    const std::string& freePE() const { return freePE_; }
    const std::string& peSize() const { return peSize_; }
    const std::string& pvSize() const { return pvSize_; }
    const std::string& totalPE() const { return totalPE_; }
    const std::string& uuid() const { return uuid_; }
    const std::string& vgName() const { return vgName_; }

  private:
    std::string name_, allocatable_, allocatedPE_, freePE_, peSize_, pvSize_, totalPE_, uuid_, vgName_;
};

}  // namespace vessa::target::lin
