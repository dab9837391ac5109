// One entry of the kernel's partition list (/proc/partitions): a block device or partition with its
// numbers and size in 1 KiB blocks, or one of the pseudo entries that stand for network and
// user-space file systems (".cifs.", ".nfs.", ".vmhgfs.", ".fusefs.").
#pragma once

#include <list>
#include <map>
#include <set>
#include <string>

#include "target/Property.h"
#include "target/Storage.h"

namespace vessa::target::lin {

class ProcPartition {
  public:
    // Parses one line of the list; the column numbers come from its header (-1: not present).
    ProcPartition(const std::string& line, int majorColumn, int minorColumn, int blocksColumn,
                  int nameColumn);

    // Appends every entry (the caller owns them): the pseudo entries ".cifs.", ".nfs." and ".fusefs.",
    // the kernel's list, then disks that only /sys/block knows and that answer READ CAPACITY. Never
    // fails: a missing list yields the pseudo entries and what /sys/block supplies.
    static void readProcPartitions(std::list<ProcPartition*>& result);
    // The parsing half: appends the valid entries of a partition list text and records their names.
    static void parse(const std::string& text, std::list<ProcPartition*>& result,
                      std::set<std::string>& names);

    void getExclusions(Storage::exclusions& ex);
    void addProperties(const std::string& categoryPrefix, std::map<std::string, Property>& properties);

    long long blocks() const { return blocks_; }
    int major() const { return major_; }
    int minor() const { return minor_; }
    const std::string& name() const { return name_; }
    bool valid() const { return valid_; }
    bool isPseudo() const;
    // Not filled by the reader; for the list's user.
    std::list<ProcPartition*>& children() { return children_; }

  private:
    long long blocks_ = 0;
    int major_ = -1;
    int minor_ = -1;
    std::string name_;
    std::list<ProcPartition*> children_;
    bool valid_ = false;
};

// Splits a line into tokens: the rest of the line is trimmed and cut at its first blank, again and
// again, so runs of blanks count as one separator (tabs do not separate).
std::list<std::string> blankTokens(const std::string& line);

}  // namespace vessa::target::lin
