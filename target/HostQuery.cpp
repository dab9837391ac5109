// Storage queries of a host: local discovery for this machine, the listing tool through the launcher
// for any other, on the caller's thread or on a worker.
#include <algorithm>
#include <iterator>
#include <memory>

#include "platform/Log.h"
#include "platform/Str.h"
#include "target/Host.h"
#include "target/VerdictListing.h"

namespace vessa::target {

namespace {

constexpr const char* kUnit = "Host";

// Set once, while the library is loaded, by the Linux discovery unit.
Host::LocalDiscovery g_localDiscovery = nullptr;

const char* typeOption(Storage::storageType type) {
    if (type & Storage::physicalStorage) {
        return "-p";
    }
    if (type & Storage::fileSystemStorage) {
        return "-f";
    }
    if (type & Storage::logicalStorageMask) {
        return "-l";
    }
    return "";
}

}  // namespace

void Host::setLocalDiscovery(LocalDiscovery discovery) {
    g_localDiscovery = discovery;
}

int Host::fill(Storage::storageType type, callback cb, bool /*flag*/, const std::list<std::string>& options) {
    VESSA_TRACE(kUnit, "Host::fill(storage)");
    const vessa::hax::Host local = vessa::hax::Host::named("127.0.0.1", false);
    if (local.id() == id()) {
        if (g_localDiscovery == nullptr) {
            VESSA_LOG << "Local discovery is not available";
            return static_cast<int>(storage_.size());
        }
        return static_cast<int>(g_localDiscovery(this, type, options, cb));
    }
    Request request(type, options);
    QueryDrives(cb, request);
    return static_cast<int>(storage_.size());
}

void Host::QueryDrives(callback& cb, const Request& request) {
    VESSA_TRACE(kUnit, "Host::QueryDrives");
    queryFailure_.clear();
    verdictsFromHost_ = false;
    std::list<std::string> args = {"--host",
                                   agent_.name(),
                                   "--workdir",
                                   agent_.envValueOf("VESSA_VLTT_INSTALL_DIR") + "/korvo_tests/",
                                   "--create-workdir",
                                   "--exec",
                                   "korvo",
                                   "-zt",
                                   "-zh",
                                   typeOption(request.first)};
    args.insert(args.end(), request.second.begin(), request.second.end());
    VESSA_LOG << "Executing korvo on " << agent_.name();
    if (cb != nullptr) {
        cb(0, "Requesting device information");
    }
    std::string output;
    std::string why;
    const int status = quickExec("pelo", args, output, &why);
    if (status != 0) {
        VESSA_LOG << "Execution failed";
        // A limit that ended the launcher is named as such: it is not a launcher that is missing.
        queryFailure_ = !why.empty() ? why
                        : status < 0 ? "the launcher pelo could not be run"
                                     : "korvo did not run to its end through pelo (exit status " +
                                           std::to_string(status) + ")";
        return;
    }
    if (cb != nullptr) {
        cb(80, "Retrieved device list...parsing...");
    }
    VESSA_LOG << "Reading korvo output";
    // Asked for, the host's verdicts follow the listing as a document of their own: cut off here, so
    // that the listing is read exactly as it always is.
    const bool askedVerdicts =
        std::find(request.second.begin(), request.second.end(), "--verdicts") != request.second.end();
    const std::string verdicts = askedVerdicts ? cutVerdictListing(output) : std::string();
    const std::size_t before = storage_.size();
    std::istringstream listing(output);
    std::string().swap(output);  // the stream holds its own copy
    int version = 0;
    for (std::string line; std::getline(listing, line);) {
        if (version != 0) {
            VESSA_LOG << "Parsing: " << util::str::trim(line);
            continue;
        }
        if (line.size() <= 2) {
            continue;
        }
        int number = 0;
        util::str::to(number, line);
        if (number == 136) {
            parseOldKorvoListing(listing, request.first, cb);
        } else {
            version = number;
        }
    }
    std::vector<std::string> warnings;
    std::vector<Verdict> found;
    if (!verdicts.empty() && parseVerdictListing(verdicts, storage_.size() - before, warnings, found)) {
        auto item = std::next(storage_.begin(), static_cast<std::ptrdiff_t>(before));
        for (Verdict& v : found) {
            setVerdict(*item++, std::move(v));
        }
        DiscoveryReport report;
        report.warnings = std::move(warnings);
        setDiscoveryReport(std::move(report));
        verdictsFromHost_ = true;
    } else if (askedVerdicts) {
        VESSA_LOG << "No verdicts from korvo on " << agent_.name();
    }
}

void Host::ThreadDrives(Request& request) {
    fill(request.first, nullptr, false, request.second);
}

sal::exec::Thread Host::queryDevices(Storage::storageType type, const std::list<std::string>& options) {
    VESSA_TRACE(kUnit, "Host::queryDevices");
    auto task = std::make_shared<sal::exec::AMethodWithArgDispatchTaskFor<Host, Request>>(
        this, &Host::ThreadDrives, Request(type, options));
    sal::exec::Thread thread;
    thread.wire(task, 262144, 0);
    thread.start();
    return thread;
}

}  // namespace vessa::target
