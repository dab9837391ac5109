// The local discovery run: reads every source of this machine, joins them per kernel block device,
// and appends storage items to a host's list.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <unordered_set>
#include <vector>

#include "target/Storage.h"

namespace vessa::target {
class Host;
}

namespace vessa::target::lin {

class DeviceLink;

// Takes the SCSI inquiry timeout from the last argument whose second character is "j" or "J" and
// that is longer than two characters ("-j5": 5 seconds; default 1), then runs GetStorage. A timeout
// that is not a number throws the text-conversion exception. The arguments "--in-use", "--tree" and
// "--identity" ask for the in-use reasons, the device tree and each device's identity (see GetStorage).
// Progress: a percentage and what is being done (which source is read, how many items are made).
typedef void (*Progress)(int, std::string);

constexpr const char* kInUseOption = "--in-use";
constexpr const char* kTreeOption = "--tree";
constexpr const char* kIdentityOption = "--identity";

unsigned int getLocalStorage(Host* host, Storage::storageType type, const std::list<std::string>& arguments,
                             Progress progress = nullptr);

// One run. Appends to host->storage(): block devices (when type shares a bit with 36), logical
// devices (26) and mounted or configured file systems (1); returns the size of the list afterwards.
// A source whose data cannot be understood stops its reader; the run goes on with what that reader
// read before, and the host's discoveryReport() names the source afterwards.
// The host's discoveryReport() also says, in words, what the run could not see (not privileged, a tool
// that failed, a table that could not be read); nothing of it is logged.
// Every run also decides each new item's verdict (Host::verdict): from its exclusions, what the kernel
// says is in use (lin/InUse.h) and what its device holds at rest (lin/AtRest.h); what could not be
// checked for an item is in its verdict. None of this changes an item or writes to the log.
// `inUse`: every new item also gets the "General" property "inUse": the reasons why the kernel
// reports its device in use joined by "; ", empty when free; the in-use layer logs what it finds, and
// the report adds what that layer could not see.
// Without it, the items are exactly those the rules make.
// `tree`: the report also holds the run's devices as a tree, with the items made from each.
// `identity`: each new item's Host::identity is read (lin/Identity.h); nothing else changes.
std::uint32_t GetStorage(Host* host, Storage::storageType type, unsigned int inquiryTimeout,
                         Progress progress = nullptr, bool inUse = false, bool tree = false,
                         bool identity = false);

// The steps of a run, exposed for tests and benchmarks.
void cleanLinks(std::list<DeviceLink*>& links);
// Without a log, only pairs below which a logical volume can be met are visited: the others change
// nothing. With a log, every ordered pair is visited, since the log shows each visit.
void makeUnique(std::list<DeviceLink*>& links);
// Devices (major and minor number, see numbersKey) already made logical items, and mount points
// already made file-system items, in this run.
typedef std::unordered_set<std::uint64_t> DoneDevices;
typedef std::unordered_set<std::string> DoneMounts;
std::uint64_t numbersKey(int major, int minor);
// `origins`, when given, receives the link each new item was made from, in step with `out`.
bool addLogicalDevices(std::list<Storage*>& out, std::size_t indexBase, Host* localHost, DeviceLink* link,
                       DoneDevices& doneLogical, unsigned int inquiryTimeout, bool isChild,
                       std::vector<const DeviceLink*>* origins = nullptr);
void addFileSystemDevices(std::list<Storage*>& out, std::size_t indexBase, Host* localHost, DeviceLink* link,
                          DoneMounts& doneMounts, unsigned int inquiryTimeout,
                          std::vector<const DeviceLink*>* origins = nullptr);

}  // namespace vessa::target::lin
