#include "cli/Fleet.h"

#include <thread>

#include "cli/ErrorText.h"
#include "platform/Exception.h"

namespace vessa::cli {

namespace {

void askOne(FleetAnswer& answer, vessa::target::Storage::storageType type,
            const std::list<std::string>& options) {
    try {
        answer.host.reset(vessa::target::Host::named(answer.name, false));
        vessa::sal::exec::Thread worker = answer.host->queryDevices(type, options);
        worker.wait();
        answer.failure = worker.failure();
        if (worker.exception()) {
            try {
                std::rethrow_exception(worker.exception());
            } catch (const std::exception& e) {
                answer.failure = errorText(e);  // a listing line that cannot be read is named
            } catch (...) {
            }
        }
        if (answer.failure.empty()) {
            answer.failure = answer.host->lastQueryFailure();
        }
    } catch (const vessa::Exception& e) {
        answer.failure = e.why();
    } catch (const std::exception& e) {
        answer.failure = e.what();
    }
}

}  // namespace

std::vector<FleetAnswer> queryFleet(const std::vector<std::string>& names,
                                    vessa::target::Storage::storageType type,
                                    const std::list<std::string>& options) {
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
            answers.push_back(FleetAnswer{name, nullptr, ""});
        }
    }
    std::vector<std::thread> threads;
    for (FleetAnswer& answer : answers) {
        threads.emplace_back(askOne, std::ref(answer), type, std::cref(options));
    }
    for (std::thread& t : threads) {
        t.join();
    }
    return answers;
}

int reportFailures(std::ostream& err, const std::vector<FleetAnswer>& answers) {
    int failed = 0;
    for (const FleetAnswer& a : answers) {
        if (!a.failure.empty()) {
            // A name or a reason from the command line or a host stays on its one line.
            err << "vessa-storage: " << oneLine(a.name) << ": " << oneLine(a.failure) << '\n';
            ++failed;
        }
    }
    return failed;
}

bool writeFleetJson(JsonWriter& json, const std::vector<FleetAnswer>& answers,
                    const std::function<void(JsonWriter&, vessa::target::Host&)>& document) {
    if (answers.size() == 1) {
        if (!answers.front().failure.empty()) {
            return false;
        }
        document(json, *answers.front().host);
        return true;
    }
    json.beginObject();
    json.key("hosts");
    json.beginArray();
    for (const FleetAnswer& a : answers) {
        if (a.failure.empty()) {
            document(json, *a.host);
        }
    }
    json.endArray();
    json.endObject();
    return true;
}

void printFleetTables(std::ostream& out, const std::vector<FleetAnswer>& answers,
                      const std::function<void(std::ostream&, vessa::target::Host&)>& table) {
    bool first = true;
    for (const FleetAnswer& a : answers) {
        if (!a.failure.empty()) {
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
