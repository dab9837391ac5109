// Fleet queries of vessa-storage: several hosts asked at once, each on its own worker thread, every
// answer (or failure) kept for printing once all have ended.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cli/JsonWriter.h"
#include "target/Host.h"

namespace vessa::cli {

struct FleetAnswer {
    std::string name;                           // as named on the command line
    std::unique_ptr<vessa::target::Host> host;  // null when no Host could be made
    std::string failure;                        // "" when the host answered
};

// Makes a Host for every name and queries them all at once: each name gets a thread that makes its
// Host (which reads the host's description) and runs Host::queryDevices, waiting for that worker.
// Waits for all; answers are in the order of `names`. A failure names what failed and why: an
// exception of the agent client or of the query (a host that cannot be reached, with ssh's reason),
// or a listing tool that did not run to its end. Names that are one host (the same agent identity)
// are asked once, under the first of those names.
std::vector<FleetAnswer> queryFleet(const std::vector<std::string>& names,
                                    vessa::target::Storage::storageType type,
                                    const std::list<std::string>& options);

// Writes "vessa-storage: NAME: failure" on `err` for every failed host; returns how many failed.
int reportFailures(std::ostream& err, const std::vector<FleetAnswer>& answers);

// The answered hosts: one host alone as its own document, several as {"hosts": [document, ...]}.
// False (nothing written) when the one host asked failed.
bool writeFleetJson(JsonWriter& json, const std::vector<FleetAnswer>& answers,
                    const std::function<void(JsonWriter&, vessa::target::Host&)>& document);

// The answered hosts' tables, each under a header line naming the host; one host alone has none.
void printFleetTables(std::ostream& out, const std::vector<FleetAnswer>& answers,
                      const std::function<void(std::ostream&, vessa::target::Host&)>& table);

}  // namespace vessa::cli
