// Fleet queries of vessa-storage: many hosts asked through a sliding window of workers, each host
// bounded by a deadline of its own, every host ending with a status and a message in words.
//
// Resources: at most `parallel` hosts are asked at a time, each by one worker thread that runs the
// host's programs (over SSH: one ssh, whose one session reads the description and the listing), so
// threads, processes and descriptors grow with the window, not with the fleet. A worker that cannot be
// created only narrows the window (the calling thread is always a worker); a program that cannot be started
// fails its host.
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

// How a host's query ended, worst last but for the order of the summary.
enum class HostStatus {
    Ok,           // the listing was read whole
    Unreachable,  // no connection: refused, no route, no such name
    Auth,         // connected, but refused the login or its host key did not match
    Timeout,      // no answer within the connect timeout, the command timeout or the host's deadline
    Partial,      // the listing was cut short: the items before the fault are kept
    Error         // the host was reached, but its tools failed (or a program could not be started here)
};
constexpr int kHostStatuses = 6;

// "ok", "unreachable", "auth", "timeout", "partial", "error".
const char* statusWord(HostStatus status);

// The status that a failure's text (ssh's reason included) names: a failed login or host key is auth,
// anything that timed out is timeout, a connection that could not be made is unreachable, the rest is
// error.
HostStatus statusOf(const std::string& failure);

struct FleetAnswer {
    std::string name;                           // as named on the command line
    std::unique_ptr<vessa::target::Host> host;  // null when no Host could be made
    HostStatus status = HostStatus::Ok;
    std::string message;  // in words: "" when ok, else what failed and why

    bool ok() const { return status == HostStatus::Ok; }
};

struct FleetOptions {
    vessa::target::Storage::storageType type = vessa::target::Storage::allStorage;
    std::list<std::string> options;  // of the drive query
    unsigned int parallel = 32;      // hosts asked at once (at least 1)
    unsigned int deadline = 130;     // seconds for one host, connections and programs together; 0: none
    // Called on the worker as each host ends, one call at a time (under the fleet's lock), in the order
    // the hosts end; it may take the host away (stream it, then let it go).
    std::function<void(FleetAnswer&)> done;
};

// Asks every host of `names` through the window; answers are in the order of `names`. Names that are
// one host (the same agent identity) are asked once, under the first of those names.
std::vector<FleetAnswer> queryFleet(const std::vector<std::string>& names, const FleetOptions& options);

// The hosts of a hosts file: one a line, blanks around it ignored, "#" starts a comment; empty lines
// are skipped.
std::vector<std::string> parseHostsFile(const std::string& text);

// Writes "vessa-storage: NAME: message" on `err` for every host that is not ok; returns how many.
int reportFailures(std::ostream& err, const std::vector<FleetAnswer>& answers);

// "998 ok, 2 unreachable": the count of each status that occurs, in the order of HostStatus.
std::string fleetSummary(const std::vector<FleetAnswer>& answers);

// The names of the hosts that are not ok, one a line (a hosts file to ask again).
std::string failedHostsText(const std::vector<FleetAnswer>& answers);

// The members of a host's document that the fleet adds: "status" and "message".
void writeHostStatus(JsonWriter& json, const FleetAnswer& answer);

// Every host, each as `document` writes it: one host alone as its own document, several as
// {"hosts": [document, ...]}. `document` is given hosts that failed too (with a null host when none
// could be made).
void writeFleetJson(JsonWriter& json, std::vector<FleetAnswer>& answers,
                    const std::function<void(JsonWriter&, FleetAnswer&)>& document);

// The answered hosts' tables, each under a header line naming the host; one host alone has none.
void printFleetTables(std::ostream& out, const std::vector<FleetAnswer>& answers,
                      const std::function<void(std::ostream&, vessa::target::Host&)>& table);

}  // namespace vessa::cli
