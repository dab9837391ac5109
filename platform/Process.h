// Processes of the base library (vessa::sal::exec): start a program with real pipes, wait for its
// exit status.
//
// Program lookup follows PATH like execvp. A program that cannot be started (missing, not executable)
// makes create() throw vessa::Exception; nothing is started then.
#pragma once

#include <sys/types.h>
#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "platform/Export.h"

namespace vessa::sal::exec {

// A complete environment: name -> value.
struct EnvVars {
    std::map<std::string, std::string> vars;
    EnvVars() = default;
    explicit EnvVars(std::map<std::string, std::string> v) : vars(std::move(v)) {}
};

// The child's working directory; `create` makes it (and its parents) first when it does not exist.
// An empty directory means "the caller's".
struct WorkingDirectory {
    std::string dir;
    bool create = false;
    WorkingDirectory(std::string d, bool c) : dir(std::move(d)), create(c) {}
};

// A hint that the program wants a window of its own with this title (started iconified when asked).
// Kept with the launch description for callers and for the process record; the platform starts no
// window itself (an "xterm" command line does that).
struct OwnWindow {
    std::string title;
    bool iconic = false;
    OwnWindow(std::string t, bool i) : title(std::move(t)), iconic(i) {}
};

// How a process is launched. By default the child inherits the caller's environment and working
// directory, and its standard input, output and error are the caller's.
class VESSA_API LaunchProperty {
  public:
    enum class Stream { Inherit, Null, Closed };

    LaunchProperty& set(const EnvVars& env);
    LaunchProperty& set(const WorkingDirectory& dir);
    LaunchProperty& hint(const OwnWindow& window);
    // Standard input/output/error not bound to a pipe: the caller's (Inherit), /dev/null (Null), or
    // Closed. A "closed" stream is given /dev/null as well, so that a file the child opens can never
    // land on descriptor 0, 1 or 2 and receive its diagnostics by accident.
    LaunchProperty& setStdin(Stream s);
    LaunchProperty& setStdout(Stream s);
    LaunchProperty& setStderr(Stream s);
    // The child leads a new process group, so that it can be ended together with whatever it started.
    LaunchProperty& ownProcessGroup(bool own);

    bool hasEnv() const { return hasEnv_; }
    const EnvVars& env() const { return env_; }
    const std::string& workingDirectory() const { return workdir_; }
    bool createWorkingDirectory() const { return createWorkdir_; }
    bool hasWindow() const { return hasWindow_; }
    const std::string& windowTitle() const { return windowTitle_; }
    bool iconic() const { return iconic_; }
    Stream stdinMode() const { return stdin_; }
    Stream stdoutMode() const { return stdout_; }
    Stream stderrMode() const { return stderr_; }
    bool hasOwnProcessGroup() const { return ownGroup_; }

  private:
    bool hasEnv_ = false;
    EnvVars env_;
    std::string workdir_;
    bool createWorkdir_ = false;
    bool hasWindow_ = false;
    std::string windowTitle_;
    bool iconic_ = false;
    Stream stdin_ = Stream::Inherit;
    Stream stdout_ = Stream::Inherit;
    Stream stderr_ = Stream::Inherit;
    bool ownGroup_ = false;
};

// A started child process. Copies share the process; wait() may be called from any copy and returns
// the same status every time.
class VESSA_API Process {
  public:
    Process();

    // Short form: standard streams as the launch property says.
    static Process create(const std::string& program, const std::list<std::string>& args,
                          const LaunchProperty& launch);
    // Long form: when bindIn/bindOut/bindErr is true, the descriptor inId/outId/errId becomes the
    // child's standard input/output/error (the descriptor ids of xio::Endpoint).
    static Process create(const std::string& program, const std::list<std::string>& args,
                          const LaunchProperty& launch, bool bindIn, int inId, bool bindOut, int outId,
                          bool bindErr, int errId);

    // The caller's own environment.
    static EnvVars envVars();

    bool valid() const { return static_cast<bool>(state_); }
    pid_t pid() const;
    // Waits for the child: its exit code, or 128 + the signal number when a signal ended it.
    // Throws vessa::Exception on a handle that holds no process.
    int wait();
    // Waits at most `milliseconds` (0: only looks); true and `status` as wait() gives it when the child
    // has ended by then.
    bool waitFor(unsigned int milliseconds, int& status);

  private:
    struct State;
    std::shared_ptr<State> state_;
};

// How long a captured run may last and how much it may write. A program that hangs (a tool waiting on a
// dead path) or writes without end must not hold up the caller.
struct RunLimits {
    unsigned int timeoutSeconds = 120;              // 0: no limit
    std::size_t maxOutput = std::size_t(64) << 20;  // bytes of standard output
    unsigned int graceMilliseconds = 2000;          // between SIGTERM and SIGKILL
};

struct RunResult {
    enum Outcome { Exited, TimedOut, TooMuchOutput };
    Outcome outcome = Exited;
    int status = 0;  // the exit status (as Process::wait gives it) when Exited
};

// A bound on every bounded run that the calling thread starts while the scope lives, whatever the run's
// own limits: a run still going at `deadline` is ended as TimedOut, and one started after it is not
// started at all (TimedOut at once). For work that must end by a time of its own across the several
// programs it runs (one host of a fleet: its connection, its launchers). Scopes nest; an inner scope
// can only bring the time forward.
class DeadlineScope {
  public:
    explicit DeadlineScope(std::chrono::steady_clock::time_point deadline);
    ~DeadlineScope();
    DeadlineScope(const DeadlineScope&) = delete;
    DeadlineScope& operator=(const DeadlineScope&) = delete;

    // Whether the calling thread has a deadline, and when.
    static bool current(std::chrono::steady_clock::time_point& deadline);

  private:
    bool hadOuter_;
    std::chrono::steady_clock::time_point outer_;
};

// Runs `program` with `args` to its end: standard input an open, never-written pipe, standard output
// a pipe read in chunks of 1024 bytes and appended to `output`, standard error not connected. The
// child leads a process group of its own. When the limits (or the thread's DeadlineScope) are exceeded, the
// whole group gets SIGTERM, then SIGKILL after the grace period; the child is reaped and what it wrote is
// dropped from `output`. Throws vessa::Exception when the program cannot be started or a pipe fails.
VESSA_API RunResult runBounded(const std::string& program, const std::list<std::string>& args,
                               std::string& output, const RunLimits& limits);

// Where the streams of a bounded run go, for callers that pass output through as it comes (a launcher),
// read the child's standard error, feed it a file, or give it an environment of their own.
struct RunStreams {
    // Receives standard output chunk by chunk (at most 1024 bytes each), in order.
    std::function<void(const char*, std::size_t)> output;
    // Receives standard error likewise; empty: standard error is not connected (/dev/null).
    std::function<void(const char*, std::size_t)> error;
    // Standard input is this file, opened for reading; empty: an open, never-written pipe.
    std::string inputFile;
    // The child's whole environment; without it, the caller's.
    bool hasEnv = false;
    EnvVars env;
};

// runBounded with streams: as above, except that output and error are handed on as they arrive (so
// what was handed on before an overrun stays with the caller), and both count towards maxOutput.
// Throws vessa::Exception when the program or its input file cannot be opened, or a pipe fails.
VESSA_API RunResult runBounded(const std::string& program, const std::list<std::string>& args,
                               const RunStreams& streams, const RunLimits& limits);

// runBounded with the default limits; returns the exit status. A run cut short by the limits throws
// vessa::Exception naming the program.
VESSA_API int runCaptured(const std::string& program, const std::list<std::string>& args,
                          std::string& output);

}  // namespace vessa::sal::exec
