// An LVM logical volume as lvdisplay prints it. Values are kept as the text the tool printed, except
// the block device numbers.
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

class LogicalVolume {
  public:
    enum Field {
        Name,
        Allocation,
        CurrentLE,
        Size,
        OpenCount,
        ReadAhead,
        Segments,
        Status,
        Uuid,
        VgName,
        WriteAccess,
        FieldCount
    };
    LogicalVolume(const std::vector<std::string>& values, int major, int minor);

    // Runs lvdisplay on the local machine and appends its volumes; always returns true. A "Block
    // device" value that is not "major:minor" throws the text-conversion exception.
    static bool readLvDisplay(std::list<LogicalVolume*>& result, Host* host);
    static void parse(const std::string& output, std::list<LogicalVolume*>& result);

    void getExclusions(Storage::exclusions& ex);
    void addProperties(const std::string& categoryPrefix, std::map<std::string, Property>& properties);

    // As the tool printed it, "/dev/" dropped: "vg0/root" from old tools, "root" from current ones
    // (which print the path on a line of its own).
    const std::string& name() const { return values_[Name]; }
    const std::string& value(Field f) const { return values_[f]; }
    const std::string& vgName() const { return values_[VgName]; }
    // The volume's device below /dev: the name when it holds the group ("vg0/root"), else the group
    // and the name joined ("vg0" + "/" + "root"). Also what mount tables are compared with.
    std::string deviceName() const;
    int major() const { return major_; }
    int minor() const { return minor_; }

  private:
    std::vector<std::string> values_;
    int major_ = 0;
    int minor_ = 0;
};

}  // namespace vessa::target::lin
