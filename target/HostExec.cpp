// Running programs for a host: locally (optionally in an xterm window), on the host through the
// launcher "pelo", and the quick execution that captures a program's output.
#include <iostream>

#include "platform/Exception.h"
#include "platform/Log.h"
#include "platform/view/SystemView.h"
#include "target/Host.h"

namespace vessa::target {

namespace {

constexpr const char* kUnit = "Host";

std::string forBuildOs(std::string dir, const std::string& buildOs) {
    if (buildOs == "win") {
        for (char& c : dir) {
            if (c == '/') {
                c = '\\';
            }
        }
        for (std::string::size_type pos; (pos = dir.find("\\\\")) != std::string::npos;) {
            dir.replace(pos, 2, "\\");
        }
    } else {
        for (char& c : dir) {
            if (c == '\\') {
                c = '/';
            }
        }
    }
    return dir;
}

}  // namespace

sal::exec::Process Host::exec(const std::string& title, const std::string& program,
                              std::list<std::string>& args, const std::string& workdir, bool /*flag*/,
                              const std::map<std::string, std::string>& env, bool inXterm, bool iconic) {
    VESSA_TRACE(kUnit, "Host::exec");
    sal::exec::LaunchProperty launch;
    launch.set(sal::exec::EnvVars(env));
    launch.set(sal::exec::WorkingDirectory(workdir, false));
    if (!inXterm) {
        return sal::exec::Process::create(program, args, launch);
    }
    launch.hint(sal::exec::OwnWindow(title, iconic));
    std::list<std::string> front;
    if (iconic) {
        front.push_back("-iconic");
    }
    front.insert(front.end(), {"-T", title, "-e", program});
    args.splice(args.begin(), front);
    return sal::exec::Process::create("xterm", args, launch);
}

sal::exec::Process Host::exec(std::list<std::string>& command, const std::string& workdir, bool inXterm,
                              bool iconic, bool createWorkdir,
                              const std::map<std::string, std::string>& env) {
    VESSA_TRACE(kUnit, "Host::exec");
    const std::string program = command.empty() ? std::string() : command.front();
    const std::string dir = forBuildOs(workdir, buildOs_);
    std::list<std::string> front;
    if (createWorkdir) {
        front.push_back("--create-workdir");
    }
    front.insert(front.end(), {"--workdir", dir, "--host", agent_.name(), "--exec"});
    command.splice(command.begin(), front);
    VESSA_LOG << "Launching executable:";
    VESSA_LOG << "    pelo";
    for (const std::string& arg : command) {
        VESSA_LOG << "    " << arg;
    }
    return exec(agent_.name() + ": " + program, "pelo", command, "", false, env, inXterm, iconic);
}

int Host::quickExec(const std::string& program, const std::list<std::string>& args, std::string& output,
                    std::string* why) {
    VESSA_TRACE(kUnit, "QuickExec");
    try {
        VESSA_LOG << "Opening pipes";
        VESSA_LOG << "Executable: \"" << program << "\"";
        int n = 0;
        for (const std::string& arg : args) {
            VESSA_LOG << "Arg[" << n++ << "] = \"" << arg << "\"";
        }
        // The view runs the launcher with our pipes (input open and unwritten, output read in chunks
        // of 1024 bytes, no error stream) or answers from a snapshot's recording.
        int status = 0;
        VESSA_LOG << "Reading output";
        const sal::exec::RunLimits limits = sal::sys::commandLimits();
        switch (sal::sys::current().run(program, args, output, status)) {
            case sal::sys::RunOutcome::Exited:
                break;
            case sal::sys::RunOutcome::NotStarted:
                throw Exception("cannot start " + program, sal::err::kNotFound);
            case sal::sys::RunOutcome::TimedOut:
                if (why != nullptr) {
                    *why = program + " did not end within the command timeout of " +
                           std::to_string(limits.timeoutSeconds) + " s and was ended";
                }
                throw Exception(program + " timed out and was ended");
            case sal::sys::RunOutcome::TooMuchOutput:
                if (why != nullptr) {
                    *why = program + " wrote more than " + std::to_string(limits.maxOutput) +
                           " bytes and was ended";
                }
                throw Exception(program + " wrote more output than is read and was ended");
        }
        VESSA_LOG << "Finished reading output...returning.";
        return status;
    } catch (const vessa::Exception& e) {
        VESSA_LOG << e.typeName() << " because " << e.why() << " ("
                  << sal::err::asString(e.code(), e.domain()) << ") @ " << __LINE__;
    } catch (const std::exception& e) {
        VESSA_LOG << "std::exception in " << __FILE__ << "@" << __LINE__ << " " << e.what();
    }
    VESSA_LOG << "Failure, returning -1";
    return -1;
}

int Host::ReadOutput(sal::xio::Channel& channel) {
    char buffer[1024];
    try {
        for (;;) {
            ssize_t n = channel.read(buffer, sizeof buffer);
            if (n < 1) {
                break;
            }
            std::cout.write(buffer, n);
            std::cout << std::endl;
        }
    } catch (...) {
        // A broken channel ends the copy; what arrived has been written.
    }
    return 0;
}

}  // namespace vessa::target
