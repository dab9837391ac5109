// The host-agent client (vessa::hax): how the controller names the hosts that run the suite's agent,
// and asks them for environment values, directory listings, files and processes.
//
// The local machine is served by local calls through the system view. Every other host is reached
// through a Transport; with none configured, any operation on a remote host throws vessa::Exception
// naming the host and the operation.
//
// Identity: "127.0.0.1", "localhost", the machine's own name (the system view's host name) and every
// address of its interfaces name one host, whose identity is "127.0.0.1". Any other name resolves to
// its numerical address, which is its identity.
//
// Hosts are cached by lower-cased name for the life of the process (the agent client's host table,
// shared by every caller, guarded by one mutex).
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/Net.h"
#include "platform/view/SystemView.h"

namespace vessa::hax {

class VESSA_API FSItem {
  public:
    enum typecode { any = 0, file = 1, directory = 2, link = 3, device = 4, other = 5 };

    FSItem() = default;
    FSItem(std::string name, typecode type) : name_(std::move(name)), type_(type) {}
    const std::string& name() const { return name_; }
    typecode type() const { return type_; }

    // The type code of a directory entry of this machine.
    static typecode of(sal::sys::DirEntry::Type type);

  private:
    std::string name_;
    typecode type_ = any;
};

// A process that the agent runs for the controller.
class VESSA_API Process {
  public:
    Process() = default;
    Process(int pid, std::string program) : pid_(pid), program_(std::move(program)) {}
    int pid() const { return pid_; }
    const std::string& program() const { return program_; }

  private:
    int pid_ = -1;
    std::string program_;
};

// How a remote host's agent is asked (`address`: the host's name as the caller named it, which the
// transport resolves itself, so that what it trusts for that name, such as ssh's known host key, is
// checked). Implementations throw vessa::Exception on failure. SshTransport (SshTransport.h) reaches hosts
// over OpenSSH.
class VESSA_API Transport {
  public:
    virtual ~Transport();
    virtual std::string envValueOf(const std::string& address, const std::string& name) = 0;
    virtual int listDirectory(const std::string& address, const std::string& directory,
                              std::list<FSItem>& items) = 0;
    virtual void putFSItem(const std::string& address, const std::string& local,
                           const std::string& remote) = 0;
    virtual void getFSItem(const std::string& address, const std::string& remote,
                           const std::string& local) = 0;
    virtual void deleteFSItem(const std::string& address, const std::string& path) = 0;
    // Processes: start one detached from the call (its process id on the host), tell which of `pids`
    // still run, send a signal (SIGTERM, SIGKILL) to each of `pids` that runs. A transport that cannot
    // do these keeps the defaults, which throw vessa::Exception (kUnsupported).
    virtual int startProcess(const std::string& address, const std::string& program,
                             const std::list<std::string>& args);
    virtual std::vector<int> runningProcesses(const std::string& address, const std::vector<int>& pids);
    virtual void signalProcesses(const std::string& address, const std::vector<int>& pids, int signal);
    // Runs `program` with `args` on the host to its end, as SshTransport::run does; `label` names the
    // run in messages (empty: the program). A transport that cannot keeps the default, which throws
    // vessa::Exception (kUnsupported) before anything is tried on the host.
    typedef std::function<void(const char*, std::size_t)> Sink;
    virtual int run(const std::string& address, const std::string& workdir, bool createWorkdir,
                    const std::string& program, const std::list<std::string>& args, const Sink& output,
                    const Sink& error, const sal::exec::RunLimits& limits, const std::string& label);
};

// Uses `transport` for every remote host from now on (nullptr: none, the default: a controller chooses
// how it reaches hosts, e.g. setTransport(std::make_shared<SshTransport>())).
VESSA_API void setTransport(std::shared_ptr<Transport> transport);

// The SSH configuration file for the SSH transport (ssh -F) and for every program the library runs
// (the launcher "pelo" finds it as VESSA_SSH_CONFIG in its environment, through the system view's
// command variables; the process environment is not changed). Empty: none set by the library.
VESSA_API void setSshConfig(const std::string& path);
// The file set by setSshConfig, else VESSA_SSH_CONFIG of the process environment, else "".
VESSA_API std::string sshConfig();
// Forgets every cached host (tests, and a controller that changes its view of the machine).
VESSA_API void clearHostCache();

// A reference-counted handle: copies share one host.
class VESSA_API Host {
  public:
    Host();

    // The host of that name, made and cached on first use. `mustAnswer` asks that a remote host be
    // reachable now: with no transport configured it throws instead of naming the host only.
    static Host named(const std::string& name, bool mustAnswer);
    // The cached host of that name; throws vessa::Exception when there is none.
    static Host fromCache(const std::string& name);
    // Appends every known host (the cache), in the order they were first named.
    static int fill(std::list<Host>& hosts);

    bool valid() const { return static_cast<bool>(impl_); }
    // Each of these throws vessa::Exception (null handle) on a handle that holds no host.
    const std::string& id() const;
    const std::string& name() const;
    const sal::io::AINETAddress& address() const;
    const std::vector<std::string>& addressList() const;
    bool isLocal() const;

    std::string envValueOf(const std::string& name) const;
    int fill(const std::string& directory, std::list<FSItem>& items) const;
    void putFSItem(const std::string& local, const std::string& remote) const;
    void getFSItem(const std::string& remote, const std::string& local) const;
    void deleteFSItem(const std::string& path) const;
    // Transport::run on this host; throws vessa::Exception (kUnsupported) for this machine.
    int run(const std::string& workdir, bool createWorkdir, const std::string& program,
            const std::list<std::string>& args, const Transport::Sink& output, const Transport::Sink& error,
            const sal::exec::RunLimits& limits, const std::string& label) const;

    // Processes the agent runs for the controller on this host: start one, list those that still run,
    // end them politely (SIGTERM) or forcibly (SIGKILL). On a remote host through the transport; the
    // process ids are then the host's.
    Process launch(const std::string& program, const std::list<std::string>& args) const;
    int fill(std::list<Process>& processes) const;
    void quitAllProcesses() const;
    void killAllProcesses() const;

    struct Impl;  // opaque; shared by every copy of the handle

  private:
    explicit Host(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
    const Impl& impl() const;
    std::shared_ptr<Impl> impl_;
};

}  // namespace vessa::hax
