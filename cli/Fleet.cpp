#include "cli/Fleet.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <sstream>
#include <system_error>
#include <thread>

#include "cli/ErrorText.h"
#include "platform/Exception.h"
#include "platform/Process.h"
#include "platform/Str.h"
#include "target/ListingLineError.h"

namespace vessa::cli {

namespace {

bool holds(const std::string& text, std::initializer_list<const char*> parts) {
    for (const char* p : parts) {
        if (text.find(p) != std::string::npos) {
            return true;
        }
    }
    return false;
}

// One host, on the calling worker: its description and its listing, in one session where the transport
// can (Host::askOnce), else as any caller asks (its Host, which reads its description, then its listing);
// every program bounded by the host's deadline.
void askOne(FleetAnswer& answer, const FleetOptions& o) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(o.deadline);
    std::string failure;
    bool cutShort = false;
    {
        std::unique_ptr<sal::exec::DeadlineScope> scope;
        if (o.deadline != 0) {
            scope = std::make_unique<sal::exec::DeadlineScope>(deadline);
        }
        try {
            if (!vessa::target::Host::askOnce(answer.name, o.type, o.options, answer.host)) {
                answer.host.reset(vessa::target::Host::named(answer.name, false));
                answer.host->fill(o.type, nullptr, false, o.options);
            }
            failure = answer.host->lastQueryFailure();
        } catch (const vessa::target::ListingLineError& e) {
            failure = errorText(e);  // names the line; the items before it stay
            cutShort = answer.host != nullptr && !answer.host->storage().empty();
        } catch (const vessa::Exception& e) {
            failure = e.why();
        } catch (const std::exception& e) {
            failure = e.what();
        }
    }
    if (failure.empty()) {
        answer.status = HostStatus::Ok;
    } else if (o.deadline != 0 && Clock::now() >= deadline) {
        answer.status = HostStatus::Timeout;
        failure = "no answer within the deadline of " + std::to_string(o.deadline) + " s";
    } else {
        answer.status = cutShort ? HostStatus::Partial : statusOf(failure);
    }
    answer.message = failure;
}

}  // namespace

const char* statusWord(HostStatus status) {
    static const char* const words[kHostStatuses] = {"ok",      "unreachable", "auth",
                                                     "timeout", "partial",     "error"};
    return words[static_cast<int>(status)];
}

HostStatus statusOf(const std::string& failure) {
    if (holds(failure, {"Permission denied", "Host key verification failed", "Too many authentication",
                        "REMOTE HOST IDENTIFICATION HAS CHANGED", "No more authentication methods"})) {
        return HostStatus::Auth;
    }
    if (holds(failure, {"timed out", "did not end within", "no answer from", "Timeout, server"})) {
        return HostStatus::Timeout;
    }
    if (holds(failure, {"Connection refused", "No route to host", "Network is unreachable",
                        "Could not resolve hostname", "Name or service not known", "Connection closed",
                        "Connection reset", "kex_exchange_identification"})) {
        return HostStatus::Unreachable;
    }
    return HostStatus::Error;
}

std::vector<FleetAnswer> queryFleet(const std::vector<std::string>& names, const FleetOptions& options) {
    std::vector<FleetAnswer> answers;
    std::vector<std::string> identities;
    for (const std::string& name : names) {
        std::string id;
        try {
            id = vessa::hax::Host::named(name, false).id();
        } catch (const vessa::Exception&) {
            id = "?" + name;  // fails again, and is reported, in its own query
        }
        bool seen = false;
        for (const std::string& other : identities) {
            seen = seen || other == id;
        }
        if (!seen) {
            identities.push_back(id);
            answers.push_back(FleetAnswer{name, nullptr, HostStatus::Ok, ""});
        }
    }
    std::atomic<std::size_t> next{0};
    std::mutex doneLock;
    auto work = [&answers, &next, &doneLock, &options] {
        for (std::size_t i; (i = next++) < answers.size();) {
            askOne(answers[i], options);
            if (options.done) {
                std::lock_guard<std::mutex> lock(doneLock);
                options.done(answers[i]);
            }
        }
    };
    const std::size_t window = std::min<std::size_t>(std::max(options.parallel, 1u), answers.size());
    std::vector<std::thread> workers;
    for (std::size_t w = 1; w < window; ++w) {
        try {
            workers.emplace_back(work);
        } catch (const std::system_error&) {
            break;  // no more threads now: the window is narrower, and no host is lost
        }
    }
    work();
    for (std::thread& t : workers) {
        t.join();
    }
    return answers;
}

std::vector<std::string> parseHostsFile(const std::string& text) {
    std::vector<std::string> hosts;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::string name = util::str::trim(line.substr(0, line.find('#')));
        if (!name.empty()) {
            hosts.push_back(name);
        }
    }
    return hosts;
}

int reportFailures(std::ostream& err, const std::vector<FleetAnswer>& answers) {
    int failed = 0;
    for (const FleetAnswer& a : answers) {
        if (!a.ok()) {
            // A name or a reason from the command line or a host stays on its one line.
            err << "vessa-storage: " << oneLine(a.name) << ": " << oneLine(a.message) << '\n';
            ++failed;
        }
    }
    return failed;
}

std::string fleetSummary(const std::vector<FleetAnswer>& answers) {
    std::size_t counts[kHostStatuses] = {};
    for (const FleetAnswer& a : answers) {
        ++counts[static_cast<int>(a.status)];
    }
    std::string text;
    for (int s = 0; s < kHostStatuses; ++s) {
        if (counts[s] != 0) {
            text += (text.empty() ? "" : ", ") + std::to_string(counts[s]) + " " +
                    statusWord(static_cast<HostStatus>(s));
        }
    }
    return text;
}

std::string failedHostsText(const std::vector<FleetAnswer>& answers) {
    std::string text;
    for (const FleetAnswer& a : answers) {
        if (!a.ok()) {
            text += oneLine(a.name) + "\n";
        }
    }
    return text;
}

void writeHostStatus(JsonWriter& json, const FleetAnswer& answer) {
    json.key("status");
    json.value(statusWord(answer.status));
    json.key("message");
    json.value(answer.message);
}

void writeFleetJson(JsonWriter& json, std::vector<FleetAnswer>& answers,
                    const std::function<void(JsonWriter&, FleetAnswer&)>& document) {
    if (answers.size() == 1) {
        document(json, answers.front());
        return;
    }
    json.beginObject();
    json.key("hosts");
    json.beginArray();
    for (FleetAnswer& a : answers) {
        document(json, a);
    }
    json.endArray();
    json.endObject();
}

void printFleetTables(std::ostream& out, const std::vector<FleetAnswer>& answers,
                      const std::function<void(std::ostream&, vessa::target::Host&)>& table) {
    bool first = true;
    for (const FleetAnswer& a : answers) {
        if (a.host == nullptr || (!a.ok() && a.status != HostStatus::Partial)) {
            continue;
        }
        if (answers.size() > 1) {
            out << (first ? "" : "\n") << "== " << a.name << " (" << a.host->storage().size() << " items)\n";
        }
        first = false;
        table(out, *a.host);
    }
}

}  // namespace vessa::cli
