// One alias of a block device as the links under /dev/disk name it: by identifier, label, path or UUID.
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

class DiskBy {
  public:
    enum Kind { ById = 0, ByLabel = 1, ByPath = 2, ByUuid = 3 };

    // The first "../../" of the target becomes "/dev/" (../../sda1 -> /dev/sda1); other targets stay.
    DiskBy(const std::string& target, const std::string& alias, int kind);

    // Collects the aliases of /dev/disk/by-id, by-label, by-path and by-uuid; always returns true.
    static bool readDisksBy(std::list<DiskBy*>& result, Host* host);
    // Lets the view read the alias directories and their links ahead, on threads of its own, while
    // the run reads its other sources (see RunScope::readAhead); readDisksBy then finds them read.
    static void readAhead();
    // Lists one directory through the host and reads each entry's link (at most 512 bytes); entries
    // that are not links are skipped.
    static void readEntries(const std::string& directory, std::list<DiskBy*>& result, Host* host, int kind);

    void getExclusions(Storage::exclusions& ex);
    // Key "Alias" + "By ID"/"By Label"/"By Path"/"By UUID" + keySuffix; the caller's suffix keeps
    // several aliases of one device apart.
    void addProperties(const std::string& keySuffix, std::map<std::string, Property>& properties);

    const std::string& target() const { return target_; }
    int kind() const { return kind_; }
    const std::string& alias() const { return alias_; }

  private:
    std::string target_;
    int kind_;
    std::string alias_;
};

}  // namespace vessa::target::lin
