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
//   ControlMaster=auto, ControlPath=DIR/%C, ControlPersist=60
//                               one connection per host, shared by the calls of every process of the
//                               user (the library, the launcher it starts), kept 60 s after the last
//                               one; DIR is a private directory (see controlDirectory())
// Everything else (user, port, keys, known hosts, proxies) comes from the user's own SSH configuration.
// The destination is the host's numerical address (the launcher's command line carries no other), so
// configuration entries and known host keys must name hosts by address.
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
// variable, or a path too long for a socket's name) /tmp/vessa-ssh-<uid>; made with mode 0700 when
// missing. "" when it is not a directory of this user
// that nobody else may enter (then every call makes a connection of its own).
std::string controlDirectory();

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
    };

    SshTransport();  // runBounded, default options
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
            const std::string& program, const std::list<std::string>& args,
            const std::function<void(const char*, std::size_t)>& output,
            const std::function<void(const char*, std::size_t)>& error, const sal::exec::RunLimits& limits);

    // The arguments of an ssh call (after the program name) that runs `remoteLine` on `address`;
    // `noInput` gives the remote side an empty standard input (-n).
    std::list<std::string> sshArguments(const std::string& address, const std::string& remoteLine,
                                        bool noInput) const;

  private:
    struct Call;
    std::string call(const std::string& address, const std::string& what, const std::string& script,
                     const std::list<std::string>& args, const Call& how);

    Options options_;
    Runner runner_;
};

}  // namespace vessa::hax
