#include "platform/Process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <vector>

#include "platform/Exception.h"
#include "platform/Pipe.h"

extern char** environ;

namespace vessa::sal::exec {

LaunchProperty& LaunchProperty::set(const EnvVars& env) {
    env_ = env;
    hasEnv_ = true;
    return *this;
}

LaunchProperty& LaunchProperty::set(const WorkingDirectory& dir) {
    workdir_ = dir.dir;
    createWorkdir_ = dir.create;
    return *this;
}

LaunchProperty& LaunchProperty::hint(const OwnWindow& window) {
    hasWindow_ = true;
    windowTitle_ = window.title;
    iconic_ = window.iconic;
    return *this;
}

LaunchProperty& LaunchProperty::setStdin(Stream s) {
    stdin_ = s;
    return *this;
}
LaunchProperty& LaunchProperty::setStdout(Stream s) {
    stdout_ = s;
    return *this;
}
LaunchProperty& LaunchProperty::setStderr(Stream s) {
    stderr_ = s;
    return *this;
}

struct Process::State {
    pid_t pid = -1;
    std::mutex mutex;
    bool reaped = false;
    int status = 0;
};

Process::Process() = default;

pid_t Process::pid() const {
    return state_ ? state_->pid : -1;
}

namespace {

// posix_spawn file actions that are released on every path out of create().
class FileActions {
  public:
    FileActions() { posix_spawn_file_actions_init(&actions_); }
    ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
    posix_spawn_file_actions_t* get() { return &actions_; }

    void bind(bool bound, int fd, int target, LaunchProperty::Stream mode, int openFlags) {
        if (bound) {
            posix_spawn_file_actions_adddup2(&actions_, fd, target);
        } else if (mode != LaunchProperty::Stream::Inherit) {
            posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", openFlags, 0);
        }
    }

  private:
    posix_spawn_file_actions_t actions_;
};

}  // namespace

Process Process::create(const std::string& program, const std::list<std::string>& args,
                        const LaunchProperty& launch) {
    return create(program, args, launch, false, -1, false, -1, false, -1);
}

Process Process::create(const std::string& program, const std::list<std::string>& args,
                        const LaunchProperty& launch, bool bindIn, int inId, bool bindOut, int outId,
                        bool bindErr, int errId) {
    if (program.empty()) {
        throw Exception("cannot start a program without a name", sal::err::kNotFound);
    }
    FileActions actions;
    actions.bind(bindIn, inId, 0, launch.stdinMode(), O_RDONLY);
    actions.bind(bindOut, outId, 1, launch.stdoutMode(), O_WRONLY);
    actions.bind(bindErr, errId, 2, launch.stderrMode(), O_WRONLY);

    if (!launch.workingDirectory().empty()) {
        if (launch.createWorkingDirectory()) {
            std::error_code ec;
            std::filesystem::create_directories(launch.workingDirectory(), ec);
            if (ec) {
                throw SystemException("cannot create working directory " + launch.workingDirectory(),
                                      ec.value());
            }
        }
        posix_spawn_file_actions_addchdir_np(actions.get(), launch.workingDirectory().c_str());
    }

    std::vector<std::string> argStore;
    argStore.reserve(args.size() + 1);
    argStore.push_back(program);
    argStore.insert(argStore.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (std::string& a : argStore) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);

    std::vector<std::string> envStore;
    std::vector<char*> envp;
    char** childEnv = environ;
    if (launch.hasEnv()) {
        for (const auto& [name, value] : launch.env().vars) {
            envStore.push_back(name + "=" + value);
        }
        for (std::string& e : envStore) {
            envp.push_back(e.data());
        }
        envp.push_back(nullptr);
        childEnv = envp.data();
    }

    pid_t pid = -1;
    int rc = posix_spawnp(&pid, program.c_str(), actions.get(), nullptr, argv.data(), childEnv);
    if (rc != 0) {
        throw Exception("cannot start " + program + ": " + std::strerror(rc),
                        rc == ENOENT ? sal::err::kNotFound : rc,
                        rc == ENOENT ? sal::err::kVessa : sal::err::kPosix);
    }
    Process p;
    p.state_ = std::make_shared<State>();
    p.state_->pid = pid;
    return p;
}

EnvVars Process::envVars() {
    EnvVars env;
    for (char** e = environ; e != nullptr && *e != nullptr; ++e) {
        const char* eq = std::strchr(*e, '=');
        if (eq == nullptr) {
            env.vars[*e] = "";
        } else {
            env.vars[std::string(*e, static_cast<std::size_t>(eq - *e))] = eq + 1;
        }
    }
    return env;
}

int Process::wait() {
    if (!state_) {
        throw Exception("wait on a process handle that holds no process", sal::err::kNullHandle);
    }
    std::lock_guard<std::mutex> lock(state_->mutex);
    if (!state_->reaped) {
        int status = 0;
        pid_t r;
        do {
            r = ::waitpid(state_->pid, &status, 0);
        } while (r < 0 && errno == EINTR);
        if (r < 0) {
            throw SystemException("waitpid", errno);
        }
        state_->reaped = true;
        state_->status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return state_->status;
}

int runCaptured(const std::string& program, const std::list<std::string>& args, std::string& output) {
    // Both pipes stay close-on-exec: the child receives its ends through the dup2 of create(), which
    // clears the flag on descriptors 0 and 1 only. Marking the ends themselves inheritable would leak
    // them into any child that another thread starts meanwhile, and the output pipe would then not
    // end before that unrelated child does.
    xio::Pipe input;
    xio::Pipe out;

    LaunchProperty launch;
    launch.set(Process::envVars());
    launch.setStdin(LaunchProperty::Stream::Null)
        .setStdout(LaunchProperty::Stream::Null)
        .setStderr(LaunchProperty::Stream::Closed);
    Process child = Process::create(program, args, launch, true, input.readEnd().id(), true,
                                    out.writeEnd().id(), false, 0);
    // The child holds its own copies now; ours must go so that the output pipe ends when it exits.
    // The input's write end stays open and unwritten: the child sees neither input nor its end.
    input.readEnd().close();
    out.writeEnd().close();

    xio::Channel channel(out.readEnd());
    char buffer[1024];
    for (;;) {
        ssize_t n = channel.read(buffer, sizeof buffer);
        if (n < 1) {
            break;
        }
        output.append(buffer, static_cast<std::size_t>(n));
    }
    return child.wait();
}

}  // namespace vessa::sal::exec
