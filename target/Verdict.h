// Whether a storage item may be destroyed by testing, and why not.
//
// Every item of a host's list has exactly one verdict, the first of these that applies:
// - excluded: it carries an exclusion (the letters of its exclusion string, in words), or its device
//   is read-only;
// - in use: the kernel says its device (or something built on it) is in use now, or it is a
//   file-system item whose directory is not on its device (nothing mounted there, or another device);
// - holds data: something lies on the device at rest: a file system, swap, a volume-manager, RAID or
//   encryption signature, a partition table, or a configured table (/etc/fstab, /etc/crypttab) names it;
// - unknown: something could not be checked for it (not running as root, a device that did not
//   answer, a path that is not running, a table that could not be read, an item of a remote listing);
// - candidate: none of the above. Only a candidate may be destroyed.
// reasons() gives every reason found, in words, whatever the verdict: exclusions first, then in use,
// data and what could not be checked ("unknown: ..."). A candidate has none.
//
// Host::verdict(item) answers for any item of a host's list (target/Host.h). For example, the disks
// of this machine that a test may wipe:
//
//     std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("localhost", false));
//     host->fill(vessa::target::Storage::discoveredBlockDevice, nullptr, false, {});
//     for (vessa::target::Storage* item : host->storage()) {
//         const vessa::target::Verdict v = host->verdict(*item);
//         if (v.candidate()) {
//             wipe(item->path());
//         }
//     }
#pragma once

#include <string>
#include <vector>

#include "platform/Export.h"

namespace vessa::target {

class VESSA_API Verdict {
  public:
    // In order of precedence: an item is the first of these it has a reason for.
    enum Kind { Excluded, InUse, HoldsData, Unknown, Candidate };

    // A candidate until a reason is added.
    Verdict() = default;

    // Adds a reason of that kind (not Candidate); a reason already given is kept once.
    void add(Kind kind, const std::string& reason);

    Kind kind() const;
    bool candidate() const { return kinds_ == 0; }
    // Whether its only reasons are data at rest: a test that is allowed to overwrite data may take it.
    bool onlyData() const { return kinds_ == (1u << HoldsData); }
    bool has(Kind kind) const { return (kinds_ & (1u << kind)) != 0; }
    const std::vector<std::string>& reasons() const { return reasons_; }
    // The reasons of one kind, in the order they were added.
    std::vector<std::string> reasonsOf(Kind kind) const;

    // "excluded", "in use", "holds data", "unknown", "candidate".
    static const char* word(Kind kind);
    const char* word() const { return word(kind()); }

    // The reasons of a ten-column exclusion string in words, in column order ("boot", "system", ...).
    static std::vector<std::string> exclusionWords(const std::string& exclusionString);

  private:
    unsigned int kinds_ = 0;
    std::vector<std::string> reasons_;
    std::vector<Kind> of_;  // the kind of each reason
};

}  // namespace vessa::target
