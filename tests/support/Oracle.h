// The discovery run written the plain way, for the tests only: every record of every source offered to
// every link's matchers, every pair of links put to the four relation tests, every ordered pair of
// roots walked for shared logical volumes, and lists searched from the front for what is done. It is
// slow on purpose and short, so that it can be read against the rules; the library's run must give
// the same storage items and the same log, line for line.
//
// It shares with the library everything that is not such a walk: the readers and their records, the
// matchers, the relation tests, the exclusions, the conversions and the dump. Where the library walks
// a link's relations guarded against cycles (DeviceLink::Visit) and keeps unreadable mounts for their
// exclusions only, the oracle does the same per link.
#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "target/Host.h"
#include "target/Storage.h"

namespace vessa::test::oracle {

// Same contract as the library's getLocalStorage and GetStorage: appends to host->storage() and
// returns its size. Registered with Host::setLocalDiscovery, it stands in for the library's run.
unsigned int getLocalStorage(vessa::target::Host* host, vessa::target::Storage::storageType type,
                             const std::list<std::string>& arguments, vessa::target::Host::callback progress);
std::uint32_t GetStorage(vessa::target::Host* host, vessa::target::Storage::storageType type,
                         unsigned int inquiryTimeout);

}  // namespace vessa::test::oracle
