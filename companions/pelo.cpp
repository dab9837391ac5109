// pelo: runs a program on a host, directly when the host is this machine, else over SSH.
//
//   pelo --host ADDRESS [--workdir DIR] [--create-workdir] --exec PROGRAM [ARGS...]
//
// Everything after --exec PROGRAM goes to the program, options of pelo's own included. The program's
// standard output and error pass through; pelo exits with the program's exit status, or 255 with one
// line on standard error when the program could not be run at all. A remote host is reached with the
// SSH configuration file named by VESSA_SSH_CONFIG when that is set.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <list>
#include <string>
#include <vector>

#include "platform/Exception.h"
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

int runThere(const Request& r, const std::string& address) {
    vessa::hax::SshTransport ssh;
    // pelo runs until the program ends: whoever started pelo bounds it. Output passes through unbounded.
    vessa::sal::exec::RunLimits limits;
    limits.timeoutSeconds = 0;
    limits.maxOutput = static_cast<std::size_t>(-1);
    return ssh.run(
        address, r.workdir, r.createWorkdir, r.program, r.args,
        [](const char* data, std::size_t size) { writeAll(STDOUT_FILENO, data, size); },
        [](const char* data, std::size_t size) { writeAll(STDERR_FILENO, data, size); }, limits);
}

const char* const kUsage =
    "usage: pelo --host ADDRESS [--workdir DIR] [--create-workdir] --exec PROGRAM [ARGS...]\n";

}  // namespace

int main(int argc, char** argv) {
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
    try {
        const vessa::hax::Host host = vessa::hax::Host::named(r.host, false);
        return host.isLocal() ? runHere(r) : runThere(r, host.id());
    } catch (const vessa::Exception& e) {
        return cannotRun(e.why());
    } catch (const std::exception& e) {
        return cannotRun(e.what());
    }
}
