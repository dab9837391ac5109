#include "platform/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/Exception.h"
#include "platform/Pipe.h"
#include "platform/Termination.h"

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
LaunchProperty& LaunchProperty::ownProcessGroup(bool own) {
    ownGroup_ = own;
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

class SpawnAttributes {
  public:
    SpawnAttributes() { posix_spawnattr_init(&attributes_); }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    posix_spawnattr_t* get() { return &attributes_; }

  private:
    posix_spawnattr_t attributes_;
};

int decodeStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

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

    SpawnAttributes attributes;
    if (launch.hasOwnProcessGroup()) {
        posix_spawnattr_setflags(attributes.get(), POSIX_SPAWN_SETPGROUP);
        posix_spawnattr_setpgroup(attributes.get(), 0);
    }
    pid_t pid = -1;
    int rc = posix_spawnp(&pid, program.c_str(), actions.get(), attributes.get(), argv.data(), childEnv);
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
        state_->status = decodeStatus(status);
    }
    return state_->status;
}

bool Process::waitFor(unsigned int milliseconds, int& status) {
    if (!state_) {
        throw Exception("wait on a process handle that holds no process", sal::err::kNullHandle);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        {
            std::lock_guard<std::mutex> lock(state_->mutex);
            if (!state_->reaped) {
                int raw = 0;
                const pid_t r = ::waitpid(state_->pid, &raw, WNOHANG);
                if (r < 0 && errno != EINTR) {
                    throw SystemException("waitpid", errno);
                }
                if (r == state_->pid) {
                    state_->reaped = true;
                    state_->status = decodeStatus(raw);
                }
            }
            if (state_->reaped) {
                status = state_->status;
                return true;
            }
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

namespace {

// Ends a child that overran its limits, and everything it started: the group is asked to stop, then
// killed, and the child is reaped so that nothing is left behind.
void endGroup(Process& child, unsigned int graceMilliseconds) {
    const pid_t group = child.pid();
    forgetGroup(group);
    ::kill(-group, SIGTERM);
    int status = 0;
    if (!child.waitFor(graceMilliseconds, status)) {
        ::kill(-group, SIGKILL);
        child.wait();
    }
    // The child may have gone at SIGTERM while something it started ignores it.
    ::kill(-group, SIGKILL);
}

}  // namespace

namespace {

// The calling thread's DeadlineScope, when it has one.
thread_local bool t_hasDeadline = false;
thread_local std::chrono::steady_clock::time_point t_deadline;

}  // namespace

DeadlineScope::DeadlineScope(std::chrono::steady_clock::time_point deadline)
    : hadOuter_(t_hasDeadline), outer_(t_deadline) {
    t_deadline = hadOuter_ ? std::min(outer_, deadline) : deadline;
    t_hasDeadline = true;
}

DeadlineScope::~DeadlineScope() {
    t_hasDeadline = hadOuter_;
    t_deadline = outer_;
}

bool DeadlineScope::current(std::chrono::steady_clock::time_point& deadline) {
    deadline = t_deadline;
    return t_hasDeadline;
}

RunResult runBounded(const std::string& program, const std::list<std::string>& args,
                     const RunStreams& streams, const RunLimits& limits) {
    std::chrono::steady_clock::time_point deadline =
        std::chrono::steady_clock::now() + std::chrono::seconds(limits.timeoutSeconds);
    const bool bounded = limits.timeoutSeconds != 0 || DeadlineScope::current(deadline);
    if (limits.timeoutSeconds != 0) {
        std::chrono::steady_clock::time_point scope;
        if (DeadlineScope::current(scope)) {
            deadline = std::min(deadline, scope);
        }
    }
    if (bounded && deadline <= std::chrono::steady_clock::now()) {
        RunResult late;
        late.outcome = RunResult::TimedOut;
        return late;
    }
    // Every pipe end stays close-on-exec: the child receives its ends through the dup2 of create(),
    // which clears the flag on descriptors 0, 1 and 2 only. Marking the ends themselves inheritable
    // would leak them into any child that another thread starts meanwhile, and the output pipe would
    // then not end before that unrelated child does.
    xio::Pipe input;
    xio::Endpoint inputFile;
    if (!streams.inputFile.empty()) {
        inputFile = xio::Endpoint(::open(streams.inputFile.c_str(), O_RDONLY | O_CLOEXEC));
        if (!inputFile.isOpen()) {
            throw SystemException("cannot open " + streams.inputFile + " as input of " + program, errno);
        }
    }
    xio::Pipe out;
    std::unique_ptr<xio::Pipe> err;
    if (streams.error) {
        err = std::make_unique<xio::Pipe>();
    }

    LaunchProperty launch;
    launch.set(streams.hasEnv ? streams.env : Process::envVars());
    launch.setStdin(LaunchProperty::Stream::Null)
        .setStdout(LaunchProperty::Stream::Null)
        .setStderr(LaunchProperty::Stream::Closed)
        .ownProcessGroup(true);
    Process child = Process::create(program, args, launch, true,
                                    inputFile.isOpen() ? inputFile.id() : input.readEnd().id(), true,
                                    out.writeEnd().id(), err != nullptr, err ? err->writeEnd().id() : -1);
    // A signal that ends this program ends the child's group too (platform/Termination.h); the group
    // leaves the table before the child is reaped, so that its number is never signalled once reused.
    rememberGroup(child.pid());
    // The child holds its own copies now; ours must go so that the output pipes end when it exits.
    // The input's write end stays open and unwritten: the child sees neither input nor its end.
    input.readEnd().close();
    inputFile.close();
    out.writeEnd().close();
    if (err) {
        err->writeEnd().close();
    }

    RunResult result;
    xio::Endpoint* ends[2] = {&out.readEnd(), err ? &err->readEnd() : nullptr};
    const std::function<void(const char*, std::size_t)>* sinks[2] = {&streams.output, &streams.error};
    std::size_t total = 0;
    char buffer[1024];
    while (ends[0] != nullptr || ends[1] != nullptr) {
        int wait = -1;
        if (bounded) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                result.outcome = RunResult::TimedOut;
                break;
            }
            wait = static_cast<int>(std::min<long long>(left.count(), 60000));
        }
        pollfd p[2];
        nfds_t count = 0;
        int which[2];
        for (int i = 0; i < 2; ++i) {
            if (ends[i] != nullptr) {
                p[count] = {ends[i]->id(), POLLIN, 0};
                which[count++] = i;
            }
        }
        const int ready = ::poll(p, count, wait);
        if (ready < 0 && errno != EINTR) {
            throw SystemException("poll", errno);
        }
        for (nfds_t k = 0; ready > 0 && k < count && result.outcome == RunResult::Exited; ++k) {
            if (p[k].revents == 0) {
                continue;
            }
            const int i = which[k];
            const ssize_t n = xio::Channel(*ends[i]).read(buffer, sizeof buffer);
            if (n < 1) {
                ends[i] = nullptr;
                continue;
            }
            total += static_cast<std::size_t>(n);
            if (total > limits.maxOutput) {
                result.outcome = RunResult::TooMuchOutput;
                break;
            }
            if (*sinks[i]) {
                (*sinks[i])(buffer, static_cast<std::size_t>(n));
            }
        }
        if (result.outcome != RunResult::Exited) {
            break;
        }
    }
    if (result.outcome != RunResult::Exited) {
        endGroup(child, limits.graceMilliseconds);
        return result;
    }
    forgetGroup(child.pid());
    result.status = child.wait();
    return result;
}

RunResult runBounded(const std::string& program, const std::list<std::string>& args, std::string& output,
                     const RunLimits& limits) {
    const std::size_t kept = output.size();
    RunStreams streams;
    streams.output = [&output](const char* data, std::size_t size) { output.append(data, size); };
    const RunResult result = runBounded(program, args, streams, limits);
    if (result.outcome != RunResult::Exited) {
        output.resize(kept);
    }
    return result;
}

int runCaptured(const std::string& program, const std::list<std::string>& args, std::string& output) {
    const RunResult r = runBounded(program, args, output, RunLimits());
    if (r.outcome != RunResult::Exited) {
        throw Exception(program + (r.outcome == RunResult::TimedOut ? " did not end in time"
                                                                    : " wrote more than it may"));
    }
    return r.status;
}

}  // namespace vessa::sal::exec
