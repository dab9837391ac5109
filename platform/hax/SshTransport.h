// The agent client's transport over OpenSSH: every remote operation is one `ssh` call to the host.
//
// Each call is an argument vector (no local shell). The remote part is the one command line that ssh
// hands to the login shell of the remote user; it is always `sh -c SCRIPT sh ARG...` with every word
// quoted by shellQuote(), so that paths, names and arguments reach the script as they are, whatever
// they contain (blanks, quotes, "$", ";", newlines). The scripts are fixed texts of this unit.
//
// Every call carries, after the configuration file (-F, when one is set):
//   BatchMode=yes               never a password or passphrase prompt: a host that wants one refuses
//   ConnectTimeout=N            a host that does not answer fails after N seconds (default 10)
//   ServerAliveInterval=15      a connection that dies midway is noticed (three missed answers)
//   ForwardAgent=no, ForwardX11=no
//                               a host never gets the use of the controller's keys or display, whatever
//                               the user's configuration says
//   ControlMaster=auto, ControlPath=DIR/KEY-%C, ControlPersist=60
//                               one connection per host, shared by the calls of one run (the library and
//                               the launchers it starts); DIR is a private directory (controlDirectory()),
//                               KEY names the configuration and the run (controlKey()), so a connection
//                               made under one configuration is never used under another.
//                               endConnections() ends a run's connections; the 60 s only bound those of
//                               a run that was killed before it could. A transport made without shared
//                               connections (Options::shareConnections) gives ControlMaster=no instead.
// Everything else (user, port, keys, known hosts, proxies) comes from the user's own SSH configuration.
// The destination is the host's name as the user gave it, so that ssh checks the host key recorded for
// that name: a name that now resolves elsewhere meets ssh's own host-key failure.
//
// Each call runs bounded (sal::exec::runBounded): by the system view's command limits unless the
// caller gives its own. A host that cannot be reached, refuses, or whose script fails throws
// vessa::Exception naming the host, the operation and ssh's reason (the last line that ssh or the
// script wrote on standard error).
//
// File transfers go through ssh as well (`cat`, with the local file as standard input or the standard
// output written to it): the remote path then reaches the host only through the quoting above, with
// no second interpretation by the remote shell or a file-transfer protocol's own path rules.
#pragma once

#include <functional>
#include <list>
#include <string>
#include <vector>

#include "platform/Process.h"
#include "platform/hax/Hax.h"

namespace vessa::hax {

// One word for a POSIX shell: in single quotes, each ' written as '\''. Throws vessa::Exception for a
// word that holds a NUL byte (no argument vector can carry it).
std::string shellQuote(const std::string& word);
// The remote command line: `sh -c SCRIPT sh ARG...`, every word through shellQuote, joined by blanks.
std::string remoteCommandLine(const std::string& script, const std::list<std::string>& args);

// The private directory for the shared connections' sockets: $XDG_RUNTIME_DIR/vessa-ssh, else (no such
// variable, a path too long for a socket's name, or one that is not trusted) /tmp/vessa-ssh-<uid>;
// made with mode 0700 when missing. Trusted means: the directory belongs to this user and nobody else
// may enter it, and every directory above it (links resolved) belongs to this user or root and nobody
// else may write it, except a root-owned directory with the sticky bit (/tmp), where others cannot
// rename or remove what is ours. "" when neither is trusted: every call then makes a connection of its
// own. Returns the resolved path.
std::string controlDirectory();

// The first part of the sockets' names: 12 hex digits of a hash of the configuration in use (the -F
// file's path and content, or the user's and the system's files when there is none) and of the run
// (VESSA_SSH_RUN when set, which the default transport sets for the programs it starts, else this
// process's id).
std::string controlKey(const std::string& configFile);

class SshTransport : public Transport {
  public:
    // Runs one ssh call: the seam through which tests see and answer the argument vectors.
    typedef std::function<sal::exec::RunResult(const std::string& program, const std::list<std::string>& args,
                                               const sal::exec::RunStreams& streams,
                                               const sal::exec::RunLimits& limits)>
        Runner;

    struct Options {
        std::string program = "ssh";
        unsigned int connectTimeout = 10;  // seconds
        // The configuration file; empty: sshConfig() at each call (and none when that is empty).
        std::string configFile;
        // The sockets' directory; empty: controlDirectory() at each call.
        std::string controlDirectory;
        // Whether calls share one connection per host (ControlMaster=auto and the rest above); without,
        // every call makes a connection of its own and leaves nothing behind (ControlMaster=no), which is
        // cheaper for a caller that talks to each host once.
        bool shareConnections = true;
    };

    // runBounded, default options; sets VESSA_SSH_RUN for the programs the view runs (a launcher then
    // shares this run's connections) unless it is set already.
    SshTransport();
    // runBounded, these options.
    explicit SshTransport(Options options);
    SshTransport(Options options, Runner runner);

    std::string envValueOf(const std::string& address, const std::string& name) override;
    int listDirectory(const std::string& address, const std::string& directory,
                      std::list<FSItem>& items) override;
    void putFSItem(const std::string& address, const std::string& local, const std::string& remote) override;
    void getFSItem(const std::string& address, const std::string& remote, const std::string& local) override;
    void deleteFSItem(const std::string& address, const std::string& path) override;
    int startProcess(const std::string& address, const std::string& program,
                     const std::list<std::string>& args) override;
    std::vector<int> runningProcesses(const std::string& address, const std::vector<int>& pids) override;
    void signalProcesses(const std::string& address, const std::vector<int>& pids, int signal) override;

    // Runs `program` with `args` on the host to its end, in `workdir` (made first when `createWorkdir`;
    // empty: the remote user's login directory), with standard input at its end. Standard output and
    // standard error are handed on as they come; returns the program's exit status. Throws
    // vessa::Exception naming the host and the reason when the program could not be started there
    // (no connection, no such directory or program); a program that starts and fails is its status.
    int run(const std::string& address, const std::string& workdir, bool createWorkdir,
            const std::string& program, const std::list<std::string>& args, const Sink& output,
            const Sink& error, const sal::exec::RunLimits& limits) {
        return run(address, workdir, createWorkdir, program, args, output, error, limits, "");
    }
    // The same, with `label` naming the run in messages in place of the program (empty: the program).
    int run(const std::string& address, const std::string& workdir, bool createWorkdir,
            const std::string& program, const std::list<std::string>& args, const Sink& output,
            const Sink& error, const sal::exec::RunLimits& limits, const std::string& label) override;

    // The arguments of an ssh call (after the program name) that runs `remoteLine` on `address`;
    // `noInput` gives the remote side an empty standard input (-n).
    std::list<std::string> sshArguments(const std::string& address, const std::string& remoteLine,
                                        bool noInput) const;

    // Ends the shared connection to each of `hosts` (ssh -O exit), where there is one; quiet, at most
    // a few seconds for each. Call when the run is over, or is being ended.
    void endConnections(const std::vector<std::string>& hosts);

  private:
    struct Call;
    std::string call(const std::string& address, const std::string& what, const std::string& script,
                     const std::list<std::string>& args, const Call& how);
    std::string configFile() const;
    std::list<std::string> commonArguments() const;

    Options options_;
    Runner runner_;
};

}  // namespace vessa::hax
