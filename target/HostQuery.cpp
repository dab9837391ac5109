// Storage queries of a host: local discovery for this machine, the listing tool through the launcher
// for any other, on the caller's thread or on a worker; or the description and the listing of a remote
// host in one session (askOnce).
#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>

#include "platform/Exception.h"
#include "platform/Log.h"
#include "platform/Str.h"
#include "platform/view/SystemView.h"
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

// The one session of askOnce, run by `sh -c` with the listing tool's arguments: the description and its
// exit status behind a mark line, then the listing tool in <install dir>/korvo_tests/ (made when
// missing), where the install directory is the session's VESSA_VLTT_INSTALL_DIR, else the description's
// (as the agent's environment lookup answers it).
constexpr const char* kDescribed = "\n\036vessa: described ";
constexpr const char* kOneSession =
    "e=$(vessa.shed.env --no-lm 2>/dev/null); s=$?\n"
    "printf '%s\\n\\036vessa: described %s\\n' \"$e\" \"$s\"\n"
    "if [ -n \"${VESSA_VLTT_INSTALL_DIR+set}\" ]; then d=$VESSA_VLTT_INSTALL_DIR\n"
    "else d=$(printf '%s\\n' \"$e\" | sed -n 's/^vltt\\.installdir=//p'); fi\n"
    "d=$d/korvo_tests/\n"
    "[ -d \"$d\" ] || mkdir -p -- \"$d\" || exit 255\n"
    "cd -- \"$d\" || exit 255\n"
    "exec korvo \"$@\"";

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
    readListing(output, cb, request);
}

void Host::readListing(std::string& output, callback& cb, const Request& request) {
    // The lines read as QueryDrives's, as they always have.
    const char* const trace = "Host::QueryDrives";
    if (cb != nullptr) {
        cb(80, "Retrieved device list...parsing...");
    }
    VESSA_LOG_AT(kUnit, trace) << "Reading korvo output";
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
            VESSA_LOG_AT(kUnit, trace) << "Parsing: " << util::str::trim(line);
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
        VESSA_LOG_AT(kUnit, trace) << "No verdicts from korvo on " << agent_.name();
    }
}

bool Host::askOnce(const std::string& name, Storage::storageType type, const std::list<std::string>& options,
                   std::unique_ptr<Host>& host) {
    VESSA_TRACE(kUnit, "Host::askOnce");
    const vessa::hax::Host agent = vessa::hax::Host::named(name, false);
    std::list<std::string> args = {"-c", kOneSession, "korvo", "-zt", "-zh", typeOption(type)};
    args.insert(args.end(), options.begin(), options.end());
    std::string output;
    int status = 0;
    VESSA_LOG << "Executing vessa.shed.env and korvo on " << name;
    try {
        // Standard error goes, as it does from the launcher runs of fill().
        status = agent.run(
            "", false, "sh", args,
            [&output](const char* data, std::size_t size) { output.append(data, size); }, nullptr,
            sal::sys::commandLimits(), "vessa.shed.env and korvo");
    } catch (const Exception& e) {
        if (e.domain() == sal::err::kVessa && e.code() == sal::err::kUnsupported) {
            return false;  // nothing was tried on the host
        }
        throw;
    }
    const std::string::size_type mark = output.find(kDescribed);
    const std::string::size_type end = output.find('\n', mark + 1);
    if (mark == std::string::npos || end == std::string::npos) {
        throw Exception("the session on " + name + " ended before the description of the host (exit status " +
                        std::to_string(status) + ")");
    }
    host.reset(new Host(agent, Unread()));
    if (output.compare(mark + std::strlen(kDescribed), end - mark - std::strlen(kDescribed), "0") == 0) {
        host->parseHostInfo(output.substr(0, mark + 1));
    } else {
        VESSA_LOG << "Execution failed";  // the description stays empty, as with refreshHostInfo
    }
    output.erase(0, end + 1);
    if (status != 0) {
        host->queryFailure_ =
            "korvo did not run to its end on " + name + " (exit status " + std::to_string(status) + ")";
        return true;
    }
    callback none = nullptr;
    host->readListing(output, none, Request(type, options));
    return true;
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
