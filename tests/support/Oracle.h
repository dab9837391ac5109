// The discovery run written the plain way, for the tests only: every record of every source offered to
// every link's matchers (DeviceLink's list constructor), every pair of links put to the four relation
// tests, every ordered pair of roots walked for shared logical volumes, and lists searched from the
// front for what is done. Slow on purpose and short, so that it can be read against the rules; the
// library's run must give the same storage items and the same log, line for line. It shares with the
// library everything that is not such a walk (readers, records, matchers, relation tests, exclusions,
// conversions, the dump, and the guard of DeviceLink::Visit against cycles).
#pragma once

#include <list>
#include <string>

#include "target/Host.h"
#include "target/Storage.h"

namespace vessa::test::oracle {

// Stands in for the library's run through Host::setLocalDiscovery: appends to host->storage() and
// returns its size. It takes no arguments (the inquiry timeout is the default, 1 second).
unsigned int getLocalStorage(vessa::target::Host* host, vessa::target::Storage::storageType type,
                             const std::list<std::string>& arguments, vessa::target::Host::callback progress);

}  // namespace vessa::test::oracle
