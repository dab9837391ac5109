// vessa-storage: discover this machine's storage (or replay a snapshot of another) and show it.
//
//   vessa-storage list    [--sysroot DIR | --host NAME...] [--type N|WORDS] [--json] [--tree] [--candidates]
//                         [--log FILE] [-j SECONDS] [--command-timeout SECONDS] [--ssh-config FILE]
//   vessa-storage report  [--sysroot DIR | --host NAME...] [--type N|WORDS] [--output FILE] [--log FILE] ...
//   vessa-storage capture DIR [--force] [--log FILE] [--command-timeout SECONDS]
//   vessa-storage check   DEVICE... [--sysroot DIR] [--log FILE] ...
//   vessa-storage guard   DEVICE... [--log FILE] ... -- COMMAND [ARG...]
//   (--host, --hosts-file: other hosts over SSH, --parallel at a time, each within --deadline seconds;
//    --ssh-config FILE for ssh -F; list: --json-lines streams one document a host, --failed-hosts FILE
//    keeps the names of those that failed)
//
// Exit status: 0 success, 1 failure (one line on standard error naming what failed; for hosts, some
// host that did not answer whole), 2 usage, 3 some device could not be checked (list --candidates, check).
// What a run could not see is said on standard error, one warning a line; `list --candidates` lists only the
// devices that surely are candidates and names the others it could not decide, since it must never guess.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <set>

#include <CLI/CLI.hpp>

#include "cli/Capture.h"
#include "cli/ErrorText.h"
#include "cli/Fleet.h"
#include "cli/Guard.h"
#include "cli/Heap.h"
#include "cli/ListOutput.h"
#include "cli/LogFile.h"
#include "cli/NamedDevices.h"
#include "cli/Terminal.h"
#include "cli/Usage.h"
#include "platform/Exception.h"
#include "platform/SafeFile.h"
#include "platform/Termination.h"
#include "platform/hax/SshTransport.h"
#include "platform/view/RecordingView.h"
#include "platform/view/SystemView.h"
#include "target/Host.h"

namespace {

struct Options {
    std::string sysroot = "/";
    std::string types = "31";
    unsigned int type = vessa::target::Storage::allStorage;
    bool json = false;
    bool tree = false;
    bool candidates = false;
    bool allowData = false;
    std::vector<std::string> devices;  // list, check, guard
    std::string columns;               // list -o
    bool bytes = false;
    bool pairs = false;
    bool raw = false;
    bool noHeader = false;
    std::size_t width = 0;             // 0: the terminal's, or none
    std::vector<std::string> command;  // guard: after "--"
    std::string logFile;
    unsigned int inquiryTimeout = 1;
    unsigned int commandTimeout = 120;
    std::string output;
    std::string captureDir;
    bool force = false;
    std::vector<std::string> hosts;
    std::string hostsFile;
    unsigned int parallel = 32;
    unsigned int deadline = 0;  // 0: the command timeout and ssh's connect timeout together
    bool deadlineSet = false;
    bool jsonLines = false;
    std::string failedHosts;
    std::string sshConfig;
};

// Exit status 3: some device could not be checked, so a list of candidates may lack some.
constexpr int kUnknown = 3;

// Exit status 2: the command line asks for something that is refused as such.
class Refusal : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Progress on standard error, one line rewritten in place, for people watching a terminal only.
bool g_progressShown = false;
void showProgress(int percent, std::string message) {
    std::cerr << "\r\033[K[" << percent << "%] " << message << std::flush;
    g_progressShown = true;
}
void endProgress() {
    if (g_progressShown) {
        std::cerr << "\r\033[K" << std::flush;
        g_progressShown = false;
    }
}

class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

bool isDirectory(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

void openLog(const Options& o, vessa::cli::LogFile& log) {
    if (!o.logFile.empty()) {
        try {
            log.open(o.logFile);
        } catch (const vessa::sal::posix::FileWriteError& e) {
            throw Failure("cannot write the log file " + o.logFile + ": " + e.reason());
        }
    }
}

// The report, whole or not at all (platform/SafeFile.h): a failed write leaves the old file as it was.
// "-" is standard output.
void writeReport(vessa::target::Host& host, const std::string& file) {
    if (file == "-") {
        host.printStorage(std::cout);
        return;
    }
    try {
        vessa::sal::posix::SafeFile out(file, 0644);
        host.printStorage(out.stream());
        out.commit();
    } catch (const vessa::sal::posix::FileWriteError& e) {
        throw Failure("cannot write the report " + file + ": " + e.reason());
    }
}

// Runs discovery for the machine the view shows. The log stream outlives the host: it is closed only
// after the host has written its last line.
// `extra`: further options of the drive query (what people see beyond the report: the in-use reasons,
// the device tree).
std::unique_ptr<vessa::target::Host> discoverWithView(const Options& o, const std::list<std::string>& extra) {
    std::string name = vessa::sal::sys::current().hostName();
    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named(name, false));
    vessa::target::Host::callback progress = vessa::cli::progressShowable() ? showProgress : nullptr;
    std::list<std::string> options = {"-j" + std::to_string(o.inquiryTimeout)};
    options.insert(options.end(), extra.begin(), extra.end());
    host->fill(static_cast<vessa::target::Storage::storageType>(o.type), progress, false, options);
    vessa::sal::exec::holdIfEnding();  // a run cut short by a signal shows nothing
    endProgress();
    return host;
}

std::unique_ptr<vessa::target::Host> discover(const Options& o, vessa::cli::LogFile& log,
                                              const std::list<std::string>& extra) {
    if (!isDirectory(o.sysroot)) {
        throw Failure("snapshot root " + o.sysroot + " is not a directory");
    }
    if (o.sysroot != "/" && !isDirectory(o.sysroot + "/sys/block") &&
        ::access((o.sysroot + "/proc/partitions").c_str(), F_OK) != 0) {
        throw Failure(o.sysroot + " is not a snapshot: it has neither proc/partitions nor sys/block");
    }
    vessa::sal::sys::useRoot(o.sysroot);
    openLog(o, log);
    return discoverWithView(o, extra);
}

void warn(const vessa::target::DiscoveryReport& report) {
    for (const std::string& w : report.warnings) {
        std::cerr << "vessa-storage: warning: " << w << '\n';
    }
}

// The hosts of --host and --hosts-file, in that order.
std::vector<std::string> hostNames(const Options& o) {
    std::vector<std::string> names = o.hosts;
    if (!o.hostsFile.empty()) {
        std::string text;
        if (!vessa::sal::sys::current().readFile(o.hostsFile, text)) {
            throw Failure("cannot read the hosts file " + o.hostsFile);
        }
        const std::vector<std::string> more = vessa::cli::parseHostsFile(text);
        names.insert(names.end(), more.begin(), more.end());
    }
    return names;
}

// The hosts named by --host and --hosts-file, asked over SSH through the window; `done` sees each
// host as it ends. Each host that failed is named on standard error, then the summary of all.
std::vector<vessa::cli::FleetAnswer> askHosts(const Options& o, vessa::cli::LogFile& log,
                                              const std::list<std::string>& extra,
                                              const std::function<void(vessa::cli::FleetAnswer&)>& done) {
    if (o.sysroot != "/") {
        throw Refusal("--sysroot and --host cannot be used together");
    }
    if (o.parallel == 0) {
        throw Refusal("--parallel needs at least 1");
    }
    const std::vector<std::string> names = hostNames(o);
    openLog(o, log);
    // Each host is asked in one session (Host::askOnce): a connection kept for it would serve nothing
    // more, and would cost a master process and its ending.
    vessa::hax::SshTransport::Options ssh;
    ssh.shareConnections = false;
    vessa::hax::setTransport(std::make_shared<vessa::hax::SshTransport>(ssh));
    if (!o.sshConfig.empty()) {
        vessa::hax::setSshConfig(o.sshConfig);
    }
    vessa::cli::FleetOptions fleet;
    fleet.type = static_cast<vessa::target::Storage::storageType>(o.type);
    fleet.options = {"-j" + std::to_string(o.inquiryTimeout)};
    fleet.options.insert(fleet.options.end(), extra.begin(), extra.end());
    fleet.parallel = o.parallel;
    // ssh's connect timeout, then the session: the description, the listing.
    fleet.deadline = o.deadlineSet ? o.deadline : o.commandTimeout == 0 ? 0 : o.commandTimeout + 10;
    fleet.done = done;
    std::vector<vessa::cli::FleetAnswer> answers = vessa::cli::queryFleet(names, fleet);
    vessa::sal::exec::holdIfEnding();
    vessa::cli::reportFailures(std::cerr, answers);
    if (names.size() > 1) {
        std::cerr << "vessa-storage: " << vessa::cli::fleetSummary(answers) << '\n';
    }
    if (!o.failedHosts.empty()) {
        try {
            vessa::sal::posix::writeWholeFile(o.failedHosts, vessa::cli::failedHostsText(answers), 0644);
        } catch (const vessa::sal::posix::FileWriteError& e) {
            throw Failure("cannot write the failed hosts to " + o.failedHosts + ": " + e.reason());
        }
    }
    return answers;
}

// What --candidates does with an item: lists it, leaves it out, or leaves it out and names it as one
// that could not be checked. With --allow-data, data at rest alone does not keep an item out.
enum class Choice { Take, Leave, Unknown };
Choice choose(const vessa::target::Verdict& v, bool allowData) {
    using vessa::target::Verdict;
    if (v.has(Verdict::Excluded) || v.has(Verdict::InUse) || (!allowData && v.has(Verdict::HoldsData))) {
        return Choice::Leave;
    }
    return v.has(Verdict::Unknown) ? Choice::Unknown : Choice::Take;
}

std::string joined(const std::vector<std::string>& texts) {
    std::string out;
    for (const std::string& t : texts) {
        out += (out.empty() ? "" : "; ") + t;
    }
    return out;
}

// What a fleet answer could not see. This machine's run says so itself, and so does the listing tool of
// another host that gave its verdicts; one that did not says nothing of devices in use, so its items
// are never taken for free.
vessa::target::DiscoveryReport reportOf(vessa::target::Host& h) {
    if (h.verdictsFromHost() || h.id() == vessa::hax::Host::named("127.0.0.1", false).id()) {
        return h.discoveryReport();
    }
    vessa::target::DiscoveryReport r;
    r.warnings.push_back("the listing of a remote host does not say which devices are in use");
    return r;
}

vessa::cli::FactsOf factsOf(const vessa::target::Host& h) {
    return [&h](const vessa::target::Storage& s) {
        return vessa::cli::ItemFacts{h.verdict(s), h.identity(s)};
    };
}

vessa::cli::Layout layoutOf(const Options& o) {
    if (o.json && (!o.columns.empty() || o.pairs || o.raw || o.noHeader || o.width != 0)) {
        throw Refusal("--json has every column: -o, -P, -r, -n and --width are for the table");
    }
    if (o.pairs && o.raw) {
        throw Refusal("-P and -r are two ways to write the table: choose one");
    }
    vessa::cli::Layout layout;
    std::string why;
    if (!o.columns.empty() && !vessa::cli::parseColumns(o.columns, layout.columns, why)) {
        throw Refusal(why);
    }
    layout.mode = o.pairs ? vessa::cli::Layout::Pairs
                  : o.raw ? vessa::cli::Layout::Raw
                          : vessa::cli::Layout::Aligned;
    layout.header = !o.noHeader;
    layout.bytes = o.bytes;
    layout.ascii = !vessa::cli::utf8Locale();
    layout.width = o.width != 0 ? o.width : vessa::cli::outputColumns();
    return layout;
}

// Whether the identity of the items must be read: the JSON document has it, the table when a column
// shows it.
bool needsIdentity(const Options& o) {
    std::vector<const vessa::cli::Column*> columns;
    std::string why;
    if (o.json) {
        return true;
    }
    if (o.columns.empty() || !vessa::cli::parseColumns(o.columns, columns, why)) {
        return false;
    }
    const std::vector<const vessa::cli::Column*> plain = vessa::cli::defaultColumns();
    return std::any_of(columns.begin(), columns.end(), [&plain](const vessa::cli::Column* c) {
        return std::string(c->name) != "VERDICT" && std::find(plain.begin(), plain.end(), c) == plain.end();
    });
}

// One host's items as shown: its candidates only when asked, and none from a host that could not see
// all. Warnings and the items that could not be checked are named on standard error; `unknown` is set
// when some were.
std::list<vessa::target::Storage*> shownItems(const Options& o, const vessa::cli::FleetAnswer& a,
                                              bool& unknown) {
    std::list<vessa::target::Storage*> items;
    if (a.host == nullptr || (!a.ok() && a.status != vessa::cli::HostStatus::Partial)) {
        return items;  // its message says what failed
    }
    const vessa::target::DiscoveryReport report = reportOf(*a.host);
    for (const std::string& w : report.warnings) {
        std::cerr << "vessa-storage: " << vessa::cli::oneLine(a.name) << ": warning: " << w << '\n';
    }
    std::size_t undecided = 0;
    for (vessa::target::Storage* s : a.host->storage()) {
        const Choice c = choose(a.host->verdict(*s), o.allowData);
        if (!o.candidates || c == Choice::Take) {
            items.push_back(s);
        }
        undecided += c == Choice::Unknown;
    }
    if (o.candidates && undecided != 0) {
        std::cerr << "vessa-storage: " << vessa::cli::oneLine(a.name) << ": " << undecided
                  << " items could not be checked and are not listed\n";
        unknown = true;
    }
    return items;
}

// One host's document, also for a host that failed (with what it listed before, when partial).
void writeHostDocument(vessa::cli::JsonWriter& json, const vessa::cli::FleetAnswer& a,
                       const std::list<vessa::target::Storage*>& items) {
    vessa::target::Host* h = a.host.get();
    const vessa::target::DiscoveryReport report =
        h != nullptr && a.ok() ? reportOf(*h) : vessa::target::DiscoveryReport();
    static const std::list<vessa::target::Storage*> none;
    vessa::cli::writeStorageJson(
        json, h != nullptr ? h->name() : a.name, items, h != nullptr ? h->storage() : none,
        h != nullptr && a.ok() ? &report : nullptr, h != nullptr ? factsOf(*h) : nullptr,
        [&a](vessa::cli::JsonWriter& j) { vessa::cli::writeHostStatus(j, a); });
}

int listHosts(const Options& o) {
    if (!o.devices.empty()) {
        throw Refusal("devices can be named on this machine only, not with --host");
    }
    const vessa::cli::Layout layout = layoutOf(o);
    vessa::cli::LogFile log;
    bool unknown = false;
    // Streamed: each host's line as it ends, and its storage let go at once.
    std::function<void(vessa::cli::FleetAnswer&)> stream;
    if (o.jsonLines) {
        stream = [&o, &unknown](vessa::cli::FleetAnswer& a) {
            const std::list<vessa::target::Storage*> items = shownItems(o, a, unknown);
            {
                vessa::cli::JsonWriter json(std::cout, vessa::cli::JsonWriter::Layout::OneLine);
                writeHostDocument(json, a, items);
                json.finish();
            }
            std::cout.flush();
            a.host.reset();
        };
    }
    std::vector<vessa::cli::FleetAnswer> answers = askHosts(o, log, {"--in-use", "--verdicts"}, stream);
    const bool failed = !std::all_of(answers.begin(), answers.end(), [](const auto& a) { return a.ok(); });
    if (o.jsonLines) {
        return failed ? 1 : unknown ? kUnknown : 0;
    }
    std::map<const vessa::cli::FleetAnswer*, std::list<vessa::target::Storage*>> shown;
    for (const vessa::cli::FleetAnswer& a : answers) {
        shown[&a] = shownItems(o, a, unknown);
    }
    if (o.json) {
        vessa::cli::JsonWriter json(std::cout);
        vessa::cli::writeFleetJson(json, answers,
                                   [&shown](vessa::cli::JsonWriter& j, vessa::cli::FleetAnswer& a) {
                                       writeHostDocument(j, a, shown[&a]);
                                   });
        json.finish();
    } else {
        std::map<const vessa::target::Host*, const vessa::cli::FleetAnswer*> answerOf;
        for (const vessa::cli::FleetAnswer& a : answers) {
            answerOf[a.host.get()] = &a;
        }
        vessa::cli::printFleetTables(std::cout, answers, [&](std::ostream& out, vessa::target::Host& h) {
            vessa::cli::printTable(out, shown[answerOf[&h]], layout, factsOf(h));
        });
    }
    return failed ? 1 : unknown ? kUnknown : 0;
}

// The report's default file is <host name>.xml in the current directory, and only there: the name
// comes from the machine (or from a snapshot someone sent), so one that would lead elsewhere is refused.
std::string defaultReportFile(const std::string& hostName) {
    if (hostName.empty() || hostName[0] == '.' ||
        hostName.find_first_of(std::string("/\0", 2)) != std::string::npos) {
        throw Failure("host name \"" + hostName + "\" would put the report outside the current directory; " +
                      "name the file with --output");
    }
    return hostName + ".xml";
}

int reportHosts(const Options& o) {
    if ((o.hosts.size() > 1 || !o.hostsFile.empty()) && !o.output.empty()) {
        throw Refusal("--output names one file: leave it out to write <name>.xml for each host");
    }
    vessa::cli::LogFile log;
    const std::vector<vessa::cli::FleetAnswer> answers = askHosts(o, log, {}, nullptr);
    int failed = 0;
    for (const vessa::cli::FleetAnswer& a : answers) {
        if (!a.ok()) {
            ++failed;
            continue;
        }
        std::string file = o.output;
        if (file.empty()) {
            try {
                file = defaultReportFile(a.host->name());
            } catch (const Failure& e) {
                std::cerr << "vessa-storage: " << vessa::cli::oneLine(a.name) << ": " << e.what() << '\n';
                ++failed;
                continue;
            }
        }
        try {
            writeReport(*a.host, file);
        } catch (const Failure& e) {
            std::cerr << "vessa-storage: " << vessa::cli::oneLine(a.name) << ": " << e.what() << '\n';
            ++failed;
            continue;
        }
        if (file != "-") {
            std::cerr << "wrote " << file << '\n';
        }
    }
    return failed == 0 ? 0 : 1;
}

int list(const Options& o) {
    if (!o.hosts.empty() || !o.hostsFile.empty()) {
        return listHosts(o);
    }
    if (o.jsonLines || !o.failedHosts.empty()) {
        throw Refusal("--json-lines and --failed-hosts are for hosts named by --host or --hosts-file");
    }
    const vessa::cli::Layout layout = layoutOf(o);
    vessa::cli::LogFile log;
    std::list<std::string> extra = {"--in-use"};
    if (o.tree || o.json || !o.devices.empty()) {
        extra.push_back("--tree");
    }
    if (needsIdentity(o)) {
        extra.push_back("--identity");
    }
    std::unique_ptr<vessa::target::Host> host = discover(o, log, extra);
    const vessa::target::DiscoveryReport& report = host->discoveryReport();
    warn(report);
    vessa::target::Host& h = *host;
    const vessa::target::DiscoveryReport named =
        o.devices.empty() ? report : vessa::cli::namedDevices(report, o.devices);
    // The items of the named devices (and of those below them), by position in the host's list.
    std::set<std::size_t> ofNamed;
    for (const vessa::target::DeviceNode& n : named.devices) {
        ofNamed.insert(n.items.begin(), n.items.end());
    }
    std::map<const vessa::target::Storage*, std::size_t> position;
    for (vessa::target::Storage* s : host->storage()) {
        position.emplace(s, position.size());
    }
    auto taken = [&](const vessa::target::Storage& s) {
        return (o.devices.empty() || ofNamed.count(position[&s]) != 0) &&
               (!o.candidates || choose(h.verdict(s), o.allowData) == Choice::Take);
    };
    std::list<vessa::target::Storage*> shown;
    bool unknown = false;
    for (vessa::target::Storage* s : host->storage()) {
        if (taken(*s)) {
            shown.push_back(s);
        }
        const vessa::target::Verdict v = h.verdict(*s);
        if (o.candidates && choose(v, o.allowData) == Choice::Unknown &&
            (o.devices.empty() || ofNamed.count(position[s]) != 0)) {
            std::string why;
            for (const std::string& r : v.reasonsOf(vessa::target::Verdict::Unknown)) {
                why += (why.empty() ? "" : "; ") + r.substr(r.find(": ") + 2);  // without "unknown: "
            }
            std::cerr << "vessa-storage: not checked: " << vessa::cli::terminalText(s->path()) << ": "
                      << vessa::cli::terminalText(why) << '\n';
            unknown = true;
        }
    }
    if (o.json) {
        vessa::cli::JsonWriter json(std::cout);
        vessa::cli::writeStorageJson(json, host->name(), shown, host->storage(), &report, factsOf(h));
        json.finish();
    } else if (o.tree) {
        vessa::cli::printTree(std::cout, host->storage(), named, taken, layout, factsOf(h));
    } else {
        vessa::cli::printTable(std::cout, shown, layout, factsOf(h));
    }
    return unknown ? kUnknown : 0;
}

// The verdict of each named device, one line each; 0 when every one is a candidate, 3 when none is
// refused but some could not be checked, 1 otherwise. `held`: the kernel names of the devices, when
// all are candidates.
int checkDevices(const Options& o, vessa::target::Host& host, std::ostream& out,
                 std::vector<std::string>* held) {
    bool refused = false, unknown = false;
    for (const std::string& name : o.devices) {
        vessa::target::Storage* item = vessa::cli::itemOf(host, name);
        if (item == nullptr) {
            out << vessa::cli::terminalText(name) << ": not found: no device of the run has that name\n";
            refused = true;
            continue;
        }
        const vessa::target::Verdict v = host.verdict(*item);
        out << vessa::cli::terminalText(name) << ": "
            << (v.candidate()                                 ? "candidate"
                : v.kind() == vessa::target::Verdict::Unknown ? "not checked: "
                                                              : "not a candidate: ")
            << vessa::cli::terminalText(joined(v.reasons())) << '\n';
        refused = refused || choose(v, o.allowData) == Choice::Leave;
        unknown = unknown || choose(v, o.allowData) == Choice::Unknown;
        if (held != nullptr) {
            const vessa::target::Property* own = item->property("Name");
            held->push_back(own != nullptr ? own->value() : vessa::cli::kernelNameOf(name));
        }
    }
    return refused ? 1 : unknown ? kUnknown : 0;
}

int check(const Options& o) {
    vessa::cli::LogFile log;
    std::unique_ptr<vessa::target::Host> host = discover(o, log, {});
    warn(host->discoveryReport());
    return checkDevices(o, *host, std::cout, nullptr);
}

int guard(const Options& o) {
    if (o.sysroot != "/") {
        throw Refusal("guard holds devices of this machine: --sysroot cannot be used");
    }
    if (o.command.empty()) {
        throw Refusal("guard needs a command after \"--\"");
    }
    vessa::cli::LogFile log;
    std::unique_ptr<vessa::target::Host> host = discover(o, log, {});
    warn(host->discoveryReport());
    std::vector<std::string> devices;
    if (checkDevices(o, *host, std::cerr, &devices) != 0) {
        std::cerr << "vessa-storage: not every device is a candidate; " << o.command.front()
                  << " was not started\n";
        return 1;
    }
    return vessa::cli::holdAndRun(devices, o.command);
}

int report(const Options& o) {
    if (!o.hosts.empty() || !o.hostsFile.empty()) {
        return reportHosts(o);
    }
    vessa::cli::LogFile log;
    std::unique_ptr<vessa::target::Host> host = discover(o, log, {});
    warn(host->discoveryReport());
    std::string file = o.output.empty() ? defaultReportFile(host->name()) : o.output;
    writeReport(*host, file);
    if (file != "-") {
        std::cerr << "wrote " << file << '\n';
    }
    return 0;
}

int capture(const Options& o) {
    std::string why;
    switch (vessa::cli::prepareCaptureDir(o.captureDir, o.force, why)) {
        case vessa::cli::TargetState::NotEmpty:
            throw Refusal(why);
        case vessa::cli::TargetState::NotWritable:
            throw Failure(why);
        case vessa::cli::TargetState::Usable:
            break;
    }
    vessa::cli::LogFile log;
    openLog(o, log);
    auto recording =
        std::make_unique<vessa::sal::sys::RecordingView>(vessa::sal::sys::makeLiveView(), o.captureDir);
    vessa::sal::sys::RecordingView* recorder = recording.get();
    vessa::sal::sys::install(std::move(recording));
    // The in-use sources and the devices' identity are recorded too, so that a replay shows what the
    // kernel said was in use and who each device is.
    std::unique_ptr<vessa::target::Host> host = discoverWithView(o, {"--in-use", "--identity"});
    warn(host->discoveryReport());
    const std::string error = recorder->firstError();
    const std::size_t items = host->storage().size();
    host.reset();
    vessa::sal::sys::install(vessa::sal::sys::makeLiveView());
    if (!error.empty()) {
        throw Failure("capture incomplete: " + error);
    }
    const vessa::cli::TreeSize size = vessa::cli::measure(o.captureDir);
    std::cerr << "captured " << items << " items: " << size.files << " files, " << size.bytes << " bytes in "
              << o.captureDir << "\n";
    return 0;
}

// A command line that cannot be run: what is wrong, what was probably meant, where to read more.
int usageError(const std::string& what, const std::string& meant) {
    std::cerr << "vessa-storage: " << vessa::cli::oneLine(what);
    if (!meant.empty()) {
        std::cerr << "; did you mean " << meant << "?";
    }
    std::cerr << " (see vessa-storage --help)\n";
    return 2;
}

// Output that did not reach its file (a full disk, a closed pipe) is a failure, not a success.
int checkWritten(int status) {
    std::cout.flush();
    if (!std::cout) {
        const int err = errno;
        std::cerr << "vessa-storage: write error on standard output" << (err != 0 ? ": " : "")
                  << (err != 0 ? std::strerror(err) : "") << '\n';
        return 1;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    vessa::cli::preferLargePages();
    CLI::App app{"Discover this machine's storage and which of it may be destroyed by testing.",
                 "vessa-storage"};
    app.set_version_flag("--version", std::string("vessa-storage ") + VESSA_VERSION);
    app.require_subcommand(1, 1);
    Options o;

    auto common = [&o](CLI::App* cmd) {
        cmd->add_option("--sysroot", o.sysroot, "Replay the snapshot in DIR instead of this machine")
            ->type_name("DIR");
        cmd->add_option(
               "--type", o.types,
               "Storage kinds: disk (36), logical (26), fs (1), all (31), comma-separated, or a mask "
               "of their bits (1 to 63)")
            ->type_name("N|WORDS");
        cmd->add_option("--log", o.logFile, "Write the library's log to FILE")->type_name("FILE");
        cmd->add_option("--command-timeout", o.commandTimeout,
                        "End a tool that has not finished after SECONDS (default 120, 0: never)")
            ->type_name("SECONDS");
        cmd->add_option("--host", o.hosts, "Ask these hosts (over SSH) instead of this machine")
            ->type_name("NAME");
        cmd->add_option("--ssh-config", o.sshConfig, "SSH configuration file for --host (ssh -F)")
            ->type_name("FILE");
        cmd->add_option("--hosts-file", o.hostsFile, "Ask the hosts of FILE too (one a line, # comments)")
            ->type_name("FILE");
        cmd->add_option("--parallel", o.parallel, "Hosts asked at once (default 32)")->type_name("N");
        cmd->add_option("--deadline", o.deadline,
                        "At most SECONDS for each host, connection and programs together (default: the "
                        "command timeout plus 10 s; 0: none)")
            ->type_name("SECONDS")
            ->each([&o](const std::string&) { o.deadlineSet = true; });
    };
    app.footer(vessa::cli::exclusionHelp() +
               "Exit status: 0 success, 1 failure, 2 usage, 3 some device could not be checked.");
    CLI::App* listCmd =
        app.add_subcommand("list", "Show the storage list (only the named devices, and those below them)");
    common(listCmd);
    listCmd->add_option("DEVICE", o.devices, "/dev/sdb, sdb, /dev/disk/by-id/..., /dev/mapper/..., 8:16")
        ->type_name("");
    listCmd->add_flag("--json", o.json, "One JSON document (every column) instead of a table");
    listCmd->add_option("-o,--output", o.columns, "Columns to show, comma-separated (see below)")
        ->type_name("COLUMNS");
    listCmd->add_flag("-b,--bytes", o.bytes, "Sizes in bytes");
    listCmd->add_flag("-P,--pairs", o.pairs, "NAME=\"value\" pairs, one line per item");
    listCmd->add_flag("-r,--raw", o.raw, "Cells one blank apart, blanks in them written \\x20");
    listCmd->add_flag("-n,--noheadings", o.noHeader, "No header line");
    listCmd
        ->add_option("--width", o.width,
                     "Fit lines in N characters (default: the terminal's; no limit in a pipe)")
        ->type_name("N");
    listCmd->footer("Columns (-o):\n" + vessa::cli::columnHelp() +
                    "Default: INDEX,TYPE,PATH,NAME,SIZE,EXCLUSIONS,REASONS,IN-USE,INQUIRY.\n\n" +
                    vessa::cli::exclusionHelp());
    listCmd->add_flag("--json-lines", o.jsonLines,
                      "With --host: one JSON document a line for each host, as each ends");
    listCmd
        ->add_option("--failed-hosts", o.failedHosts,
                     "With --host: write the hosts that did not answer whole to FILE, one a line")
        ->type_name("FILE");
    listCmd->add_flag("--tree", o.tree, "Devices nested under what they belong to");
    listCmd->add_flag("--candidates", o.candidates,
                      "Only what may be destroyed by testing: not excluded, not in use, holding no data; "
                      "devices that could not be checked are named on standard error (exit 3)");
    listCmd->add_flag("--allow-data", o.allowData,
                      "With --candidates: also devices whose only reason is data at rest");
    listCmd->add_option("-j", o.inquiryTimeout, "SCSI inquiry timeout in seconds (default 1)")
        ->type_name("SECONDS");
    CLI::App* reportCmd = app.add_subcommand("report", "Write the XML storage report");
    common(reportCmd);
    reportCmd->add_option("--output", o.output, "Report file (default: <host name>.xml; -: standard output)")
        ->type_name("FILE");
    CLI::App* captureCmd = app.add_subcommand(
        "capture", "Write a snapshot of everything discovery reads on this machine to DIR");
    captureCmd->add_option("DIR", o.captureDir, "Snapshot directory (new or empty)")
        ->type_name("")
        ->required();
    captureCmd->add_flag("--force", o.force, "Write into DIR even when it is not empty");
    captureCmd->add_option("--log", o.logFile, "Write the library's log to FILE")->type_name("FILE");
    captureCmd
        ->add_option("--command-timeout", o.commandTimeout,
                     "End a tool that has not finished after SECONDS (default 120, 0: never)")
        ->type_name("SECONDS");

    CLI::App* checkCmd = app.add_subcommand(
        "check", "Show whether each device may be destroyed by testing (exit 0: every one may)");
    checkCmd->add_option("DEVICE", o.devices, "/dev/sdb, /dev/disk/by-id/..., /dev/mapper/..., 8:16")
        ->type_name("")
        ->required();
    checkCmd->add_flag("--allow-data", o.allowData, "Data at rest alone does not refuse a device");
    checkCmd->add_option("--sysroot", o.sysroot, "Replay the snapshot in DIR instead of this machine")
        ->type_name("DIR");
    CLI::App* guardCmd = app.add_subcommand(
        "guard", "Check the devices, then hold them (exclusive open, disk lock) while COMMAND runs");
    guardCmd->add_option("DEVICE", o.devices, "The devices COMMAND may destroy")->type_name("")->required();
    guardCmd->add_flag("--allow-data", o.allowData, "Data at rest alone does not refuse a device");
    for (CLI::App* cmd : {checkCmd, guardCmd}) {
        cmd->add_option("--log", o.logFile, "Write the library's log to FILE")->type_name("FILE");
        cmd->add_option("-j", o.inquiryTimeout, "SCSI inquiry timeout in seconds (default 1)")
            ->type_name("SECONDS");
        cmd->add_option("--command-timeout", o.commandTimeout,
                        "End a tool that has not finished after SECONDS (default 120, 0: never)")
            ->type_name("SECONDS");
    }
    // guard's command is everything after "--", taken before the options are parsed.
    for (int i = 1; i < argc; ++i) {
        if (std::string(argv[i]) == "--" && i > 1 && std::string(argv[1]) == "guard") {
            o.command.assign(argv + i + 1, argv + argc);
            argc = i;
            break;
        }
    }

    // An option before any command, or a command misspelt, would only be answered with "a subcommand
    // is required".
    std::vector<std::string> commands;
    for (const CLI::App* cmd : app.get_subcommands([](const CLI::App*) { return true; })) {
        commands.push_back(cmd->get_name());
    }
    if (argc > 1 && argv[1][0] == '-' && app.get_option_no_throw(argv[1]) == nullptr &&
        std::string(argv[1]) != "-h" && std::string(argv[1]) != "--help") {
        return usageError("unknown option " + std::string(argv[1]), "");
    }
    if (argc > 1 && argv[1][0] != '-' &&
        std::find(commands.begin(), commands.end(), std::string(argv[1])) == commands.end()) {
        return usageError("unknown command " + std::string(argv[1]), vessa::cli::nearest(argv[1], commands));
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        // A misspelt option of the command: the nearest of its own.
        std::string hint;
        const CLI::App* cmd = nullptr;
        for (const CLI::App* c : app.get_subcommands([](const CLI::App*) { return true; })) {
            cmd = argc > 1 && c->get_name() == argv[1] ? c : cmd;
        }
        if (cmd != nullptr) {
            std::vector<std::string> names;
            for (const CLI::Option* opt : cmd->get_options()) {
                for (const std::string& n : opt->get_lnames()) {
                    names.push_back("--" + n);
                }
            }
            for (const std::string& extra : cmd->remaining()) {
                if (hint.empty() && extra.compare(0, 2, "--") == 0) {
                    hint = vessa::cli::nearest(extra.substr(0, extra.find('=')), names);
                }
            }
        }
        return usageError(e.what(), hint);
    }
    std::string why;
    if (!vessa::cli::parseTypes(o.types, o.type, why)) {
        return usageError(why, "");
    }

    vessa::target::Host::setCommandTimeout(o.commandTimeout);
    // Ended by a signal, the program ends every tool, launcher and ssh it started (no connection to a
    // host outlives its session); the helpers that ask devices go with the process.
    vessa::sal::exec::endGroupsOnSignals(nullptr);
    try {
        if (listCmd->parsed()) {
            return checkWritten(list(o));
        }
        if (captureCmd->parsed()) {
            return capture(o);
        }
        if (checkCmd->parsed()) {
            return checkWritten(check(o));
        }
        if (guardCmd->parsed()) {
            return guard(o);
        }
        return checkWritten(report(o));
    } catch (const Refusal& e) {
        endProgress();
        std::cerr << "vessa-storage: " << e.what() << '\n';
        return 2;
    } catch (const std::exception& e) {
        endProgress();
        std::cerr << "vessa-storage: " << vessa::cli::errorText(e) << '\n';
    }
    return 1;
}
