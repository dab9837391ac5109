// pelo: runs a program on a host, directly when the host is this machine, else over SSH.
//
//   pelo --host NAME [--workdir DIR] [--create-workdir] --exec PROGRAM [ARGS...]
//
// Everything after --exec PROGRAM goes to the program, options of pelo's own included. The program's
// standard output and error pass through; pelo exits with the program's exit status, or 255 with one
// line on standard error when the program could not be run at all. A remote host is reached with the
// SSH configuration file named by VESSA_SSH_CONFIG when that is set.
//
// A remote program runs at most VESSA_COMMAND_TIMEOUT seconds (the command timeout of the program that
// started pelo; 120 when unset, 0 for none). SIGINT, SIGTERM and SIGHUP end the ssh session, and with it
// the remote program, and pelo exits with 128 + the signal number.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <list>
#include <string>
#include <vector>

#include "platform/Exception.h"
#include "platform/Termination.h"
#include "platform/hax/Hax.h"
#include "platform/hax/SshTransport.h"

namespace {

constexpr int kCannotRun = 255;

struct Request {
    std::string host;
    std::string workdir;
    bool createWorkdir = false;
    std::string program;
    std::list<std::string> args;
};

int cannotRun(const std::string& why) {
    std::cerr << "pelo: " << why << std::endl;
    return kCannotRun;
}

void writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        data += n;
        size -= static_cast<std::size_t>(n);
    }
}

// This machine: the working directory, then the program in place of pelo.
int runHere(const Request& r) {
    if (!r.workdir.empty()) {
        std::error_code ec;
        if (r.createWorkdir) {
            std::filesystem::create_directories(r.workdir, ec);
        }
        if (ec || ::chdir(r.workdir.c_str()) != 0) {
            return cannotRun("cannot enter " + r.workdir + ": " + (ec ? ec.message() : std::strerror(errno)));
        }
    }
    std::vector<std::string> words = {r.program};
    words.insert(words.end(), r.args.begin(), r.args.end());
    std::vector<char*> argv;
    for (std::string& w : words) {
        argv.push_back(w.data());
    }
    argv.push_back(nullptr);
    ::execvp(r.program.c_str(), argv.data());
    return cannotRun("cannot run " + r.program + ": " + std::strerror(errno));
}

unsigned int commandTimeout() {
    const char* value = std::getenv("VESSA_COMMAND_TIMEOUT");
    unsigned int seconds = vessa::sal::exec::RunLimits().timeoutSeconds;
    if (value != nullptr && value[0] != '\0') {
        char* end = nullptr;
        const unsigned long parsed = std::strtoul(value, &end, 10);
        if (*end == '\0' && parsed <= 0xffffffffUL) {
            seconds = static_cast<unsigned int>(parsed);
        }
    }
    return seconds;
}

int runThere(const Request& r, const std::string& hostName) {
    // A run of pelo's own (not one of a controller's) ends its shared connection when it is over.
    const char* run = std::getenv("VESSA_SSH_RUN");
    const bool ownRun = run == nullptr || run[0] == '\0';
    vessa::hax::SshTransport ssh;
    // Output passes through unbounded; the time is the caller's command timeout.
    vessa::sal::exec::RunLimits limits;
    limits.timeoutSeconds = commandTimeout();
    limits.maxOutput = static_cast<std::size_t>(-1);
    try {
        const int status = ssh.run(
            hostName, r.workdir, r.createWorkdir, r.program, r.args,
            [](const char* data, std::size_t size) { writeAll(STDOUT_FILENO, data, size); },
            [](const char* data, std::size_t size) { writeAll(STDERR_FILENO, data, size); }, limits);
        if (ownRun) {
            ssh.endConnections({hostName});
        }
        return status;
    } catch (...) {
        if (ownRun) {
            ssh.endConnections({hostName});
        }
        throw;
    }
}

const char* const kUsage =
    "usage: pelo --host NAME [--workdir DIR] [--create-workdir] --exec PROGRAM [ARGS...]\n";

}  // namespace

int main(int argc, char** argv) {
    vessa::sal::exec::endGroupsOnSignals(nullptr);
    Request r;
    int i = 1;
    for (; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--help") {
            std::cout << kUsage;
            return 0;
        }
        if (a == "--version") {
            std::cout << "pelo " << VESSA_VERSION << '\n';
            return 0;
        }
        if (a == "--create-workdir") {
            r.createWorkdir = true;
        } else if ((a == "--host" || a == "--workdir" || a == "--exec") && i + 1 < argc) {
            const std::string value = argv[++i];
            if (a == "--host") {
                r.host = value;
            } else if (a == "--workdir") {
                r.workdir = value;
            } else {
                r.program = value;
                ++i;
                break;
            }
        } else {
            std::cerr << kUsage;
            return cannotRun("unexpected argument \"" + a + "\"");
        }
    }
    for (; i < argc; ++i) {
        r.args.push_back(argv[i]);
    }
    if (r.host.empty() || r.program.empty()) {
        std::cerr << kUsage;
        return cannotRun("--host and --exec are required");
    }
    int status = kCannotRun;
    try {
        const vessa::hax::Host host = vessa::hax::Host::named(r.host, false);
        status = host.isLocal() ? runHere(r) : runThere(r, host.name());
    } catch (const vessa::Exception& e) {
        status = vessa::sal::exec::ending() ? kCannotRun : cannotRun(e.why());
    } catch (const std::exception& e) {
        status = vessa::sal::exec::ending() ? kCannotRun : cannotRun(e.what());
    }
    // A session cut short by a signal is not a failure to report: the exit under way says what it was.
    vessa::sal::exec::holdIfEnding();
    return status;
}
