// vessa-storage: discover this machine's storage (or replay a snapshot of another) and show it.
//
//   vessa-storage list    [--sysroot DIR] [--type N] [--json] [--log FILE] [-j SECONDS]
//   vessa-storage report  [--sysroot DIR] [--type N] [--output FILE] [--log FILE]
//
// Exit status: 0 success, 1 failure (one line on standard error naming what failed), 2 usage.
#include <sys/stat.h>

#include <fstream>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "cli/ListOutput.h"
#include "platform/Exception.h"
#include "platform/SystemView.h"
#include "target/Host.h"

namespace {

struct Options {
    std::string sysroot = "/";
    unsigned int type = vessa::target::Storage::allStorage;
    bool json = false;
    std::string logFile;
    unsigned int inquiryTimeout = 1;
    std::string output;
};

class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

bool isDirectory(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Sets up the view and the log, and runs discovery for the machine the view shows. The log stream
// outlives the host: it is closed only after the host has written its last line.
std::unique_ptr<vessa::target::Host> discover(const Options& o, std::ofstream& log) {
    if (!isDirectory(o.sysroot)) {
        throw Failure("snapshot root " + o.sysroot + " is not a directory");
    }
    vessa::sal::sys::useRoot(o.sysroot);
    if (!o.logFile.empty()) {
        log.open(o.logFile, std::ios::out | std::ios::trunc);
        if (!log) {
            throw Failure("cannot write the log file " + o.logFile);
        }
        vessa::target::Host::setLoggingStream(log);
    }
    std::string name = vessa::sal::sys::current().hostName();
    std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named(name, false));
    host->fill(static_cast<vessa::target::Storage::storageType>(o.type), nullptr, false,
               {"-j" + std::to_string(o.inquiryTimeout)});
    return host;
}

int list(const Options& o) {
    std::ofstream log;
    std::unique_ptr<vessa::target::Host> host = discover(o, log);
    if (o.json) {
        std::cout << vessa::cli::toJson(host->name(), host->storage()).dump(2) << '\n';
    } else {
        vessa::cli::printTable(std::cout, host->storage());
    }
    return 0;
}

int report(const Options& o) {
    std::ofstream log;
    std::unique_ptr<vessa::target::Host> host = discover(o, log);
    std::string file = o.output.empty() ? host->name() + ".xml" : o.output;
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
    };
    CLI::App* listCmd = app.add_subcommand("list", "Show the storage list");
    common(listCmd);
    listCmd->add_flag("--json", o.json, "One JSON document instead of a table");
    listCmd->add_option("-j", o.inquiryTimeout, "SCSI inquiry timeout in seconds (default 1)")
        ->type_name("SECONDS");
    CLI::App* reportCmd = app.add_subcommand("report", "Write the XML storage report");
    common(reportCmd);
    reportCmd->add_option("--output", o.output, "Report file (default: <host name>.xml)")->type_name("FILE");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int rc = app.exit(e);
        return rc == 0 ? 0 : 2;
    }

    try {
        if (listCmd->parsed()) {
            return list(o);
        }
        return report(o);
    } catch (const Failure& e) {
        std::cerr << "vessa-storage: " << e.what() << '\n';
    } catch (const vessa::Exception& e) {
        std::cerr << "vessa-storage: " << e.typeName() << ": " << e.why() << '\n';
    } catch (const std::exception& e) {
        std::cerr << "vessa-storage: " << e.what() << '\n';
    }
    return 1;
}
