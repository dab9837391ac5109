// vessa-storage: discover this machine's storage (or replay a snapshot of another) and show it.
//
//   vessa-storage list    [--sysroot DIR] [--type N] [--json] [--log FILE] [-j SECONDS]
//   vessa-storage report  [--sysroot DIR] [--type N] [--output FILE] [--log FILE]
//   vessa-storage capture DIR [--force] [--log FILE]
//
// Exit status: 0 success, 1 failure (one line on standard error naming what failed), 2 usage.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "cli/Capture.h"
#include "cli/ErrorText.h"
#include "cli/ListOutput.h"
#include "platform/Exception.h"
#include "platform/view/RecordingView.h"
#include "platform/view/SystemView.h"
#include "target/Host.h"

namespace {

struct Options {
    std::string sysroot = "/";
    unsigned int type = vessa::target::Storage::allStorage;
    bool json = false;
    std::string logFile;
    unsigned int inquiryTimeout = 1;
    unsigned int commandTimeout = 120;
    std::string output;
    std::string captureDir;
    bool force = false;
};

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

void openLog(const Options& o, std::ofstream& log) {
    if (!o.logFile.empty()) {
        log.open(o.logFile, std::ios::out | std::ios::trunc);
        if (!log) {
            throw Failure("cannot write the log file " + o.logFile);
        }
        vessa::target::Host::setLoggingStream(log);
    }
}

// Runs discovery for the machine the view shows. The log stream outlives the host: it is closed only
// after the host has written its last line.
std::unique_ptr<vessa::target::Host> discoverWithView(const Options& o) {
    std::string name = vessa::sal::sys::current().hostName();
    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named(name, false));
    vessa::target::Host::callback progress = ::isatty(STDERR_FILENO) ? showProgress : nullptr;
    host->fill(static_cast<vessa::target::Storage::storageType>(o.type), progress, false,
               {"-j" + std::to_string(o.inquiryTimeout)});
    endProgress();
    return host;
}

std::unique_ptr<vessa::target::Host> discover(const Options& o, std::ofstream& log) {
    if (!isDirectory(o.sysroot)) {
        throw Failure("snapshot root " + o.sysroot + " is not a directory");
    }
    vessa::sal::sys::useRoot(o.sysroot);
    openLog(o, log);
    return discoverWithView(o);
}

int list(const Options& o) {
    std::ofstream log;
    std::unique_ptr<vessa::target::Host> host = discover(o, log);
    if (o.json) {
        vessa::cli::JsonWriter json(std::cout);
        vessa::cli::writeStorageJson(json, host->name(), host->storage());
        json.finish();
    } else {
        vessa::cli::printTable(std::cout, host->storage());
    }
    return 0;
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

int report(const Options& o) {
    std::ofstream log;
    std::unique_ptr<vessa::target::Host> host = discover(o, log);
    std::string file = o.output.empty() ? defaultReportFile(host->name()) : o.output;
    std::ofstream out(file, std::ios::out | std::ios::trunc);
    if (!out) {
        throw Failure("cannot write the report " + file);
    }
    host->printStorage(out);
    out.close();
    if (!out) {
        throw Failure("cannot write the report " + file);
    }
    std::cerr << "wrote " << file << '\n';
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
    std::ofstream log;
    openLog(o, log);
    auto recording =
        std::make_unique<vessa::sal::sys::RecordingView>(vessa::sal::sys::makeLiveView(), o.captureDir);
    vessa::sal::sys::RecordingView* recorder = recording.get();
    vessa::sal::sys::install(std::move(recording));
    std::unique_ptr<vessa::target::Host> host = discoverWithView(o);
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

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Discover this machine's storage and which of it may be destroyed by testing."};
    app.set_version_flag("--version", std::string("vessa-storage ") + VESSA_VERSION);
    app.require_subcommand(1, 1);
    Options o;

    auto common = [&o](CLI::App* cmd) {
        cmd->add_option("--sysroot", o.sysroot, "Replay the snapshot in DIR instead of this machine")
            ->type_name("DIR");
        cmd->add_option("--type", o.type, "Storage kinds: 1 file systems, 36 disks, 26 logical, 31 all")
            ->type_name("N");
        cmd->add_option("--log", o.logFile, "Write the library's log to FILE")->type_name("FILE");
        cmd->add_option("--command-timeout", o.commandTimeout,
                        "End a tool that has not finished after SECONDS (default 120, 0: never)")
            ->type_name("SECONDS");
    };
    CLI::App* listCmd = app.add_subcommand("list", "Show the storage list");
    common(listCmd);
    listCmd->add_flag("--json", o.json, "One JSON document instead of a table");
    listCmd->add_option("-j", o.inquiryTimeout, "SCSI inquiry timeout in seconds (default 1)")
        ->type_name("SECONDS");
    CLI::App* reportCmd = app.add_subcommand("report", "Write the XML storage report");
    common(reportCmd);
    reportCmd->add_option("--output", o.output, "Report file (default: <host name>.xml)")->type_name("FILE");
    CLI::App* captureCmd = app.add_subcommand(
        "capture", "Write a snapshot of everything discovery reads on this machine to DIR");
    captureCmd->add_option("DIR", o.captureDir, "Snapshot directory (new or empty)")->required();
    captureCmd->add_flag("--force", o.force, "Write into DIR even when it is not empty");
    captureCmd->add_option("--log", o.logFile, "Write the library's log to FILE")->type_name("FILE");
    captureCmd
        ->add_option("--command-timeout", o.commandTimeout,
                     "End a tool that has not finished after SECONDS (default 120, 0: never)")
        ->type_name("SECONDS");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int rc = app.exit(e);
        return rc == 0 ? 0 : 2;
    }

    vessa::target::Host::setCommandTimeout(o.commandTimeout);
    try {
        if (listCmd->parsed()) {
            return list(o);
        }
        if (captureCmd->parsed()) {
            return capture(o);
        }
        return report(o);
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
