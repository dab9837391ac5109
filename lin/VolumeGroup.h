// An LVM volume group as vgdisplay prints it. Values are kept as the text the tool printed.
#pragma once

#include <list>
#include <map>
#include <string>
#include <vector>

#include "target/Property.h"
#include "target/Storage.h"

namespace vessa::target {
class Host;
}

namespace vessa::target::lin {

class VolumeGroup {
  public:
    // The nineteen values in this order.
    enum Field {
        Name,
        ActualPV,
        AllocPE,
        CurrentLV,
        CurrentPV,
        Format,
        FreePE,
        MaximumLV,
        MaximumPV,
        MetadataAreas,
        MetadataSeqNo,
        OpenLV,
        PESize,
        SystemID,
        TotalPE,
        Uuid,
        Access,
        Size,
        Status,
        FieldCount
    };
    explicit VolumeGroup(const std::vector<std::string>& values);

    // Runs vgdisplay on the local machine and appends its groups; always returns true.
    static bool readVgDisplay(std::list<VolumeGroup*>& result, Host* host);
    static void parse(const std::string& output, std::list<VolumeGroup*>& result);

    // A physical volume of a volume group may not be used on its own.
    void getExclusions(Storage::exclusions& ex);
    void addProperties(const std::string& categoryPrefix, std::map<std::string, Property>& properties);

    const std::string& name() const { return values_[Name]; }
    const std::string& value(Field f) const { return values_[f]; }

  private:
    std::vector<std::string> values_;
};

}  // namespace vessa::target::lin
