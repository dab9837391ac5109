#include "support/TestSshd.h"

#include "support/LoopDevice.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

namespace exec = vessa::sal::exec;

namespace vessa::test {

namespace {

const std::string kBin = VESSA_BINARY_DIR;

// Binds (port 0: a free port, which it gives) or connects to `port` on `address`; 0 when that fails.
int socketAt(const std::string& address, int port, bool bind) {
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, address.c_str(), &a.sin_addr);
    socklen_t len = sizeof a;
    auto* any = reinterpret_cast<sockaddr*>(&a);
    const bool ok =
        bind ? ::bind(s, any, len) == 0 && ::getsockname(s, any, &len) == 0 : ::connect(s, any, len) == 0;
    ::close(s);
    return ok ? ntohs(a.sin_port) : 0;
}

}  // namespace

bool canRunSshd() {
    return runningAsRoot() && std::filesystem::exists("/usr/sbin/sshd") &&
           std::filesystem::exists("/usr/bin/ssh");
}

TestSshd::TestSshd(const std::vector<std::string>& addresses, const std::vector<std::string>& configured,
                   const std::string& sessionEnv, const std::string& sessionPath)
    : port(socketAt(addresses.front(), 0, true)) {
    const std::string t = dir.path(), p = std::to_string(port);
    for (const char* key : {"host_key", "client_key"}) {
        std::string out;
        if (exec::runCaptured("ssh-keygen", {"-q", "-t", "ed25519", "-N", "", "-f", t + "/" + key}, out) !=
            0) {
            return;
        }
    }
    dir.write("authorized_keys", readFile(t + "/client_key.pub"));
    dir.write("install/.keep", "");
    const std::string hostKey = readFile(t + "/host_key.pub");
    std::string known, listen, hosts;
    for (const std::string& a : addresses) {
        listen += "ListenAddress " + a + "\n";
    }
    std::vector<std::string> all = addresses;
    all.insert(all.end(), configured.begin(), configured.end());
    for (const std::string& a : all) {
        known += "[" + a + "]:" + p + " " + hostKey.substr(0, hostKey.rfind(' ')) + "\n";
        hosts += " " + a;
    }
    dir.write("known_hosts", known);
    dir.write("sshd_config",
              "Port " + p + "\n" + listen + "HostKey " + t + "/host_key\nPidFile " + t +
                  "/sshd.pid\nAuthorizedKeysFile " + t +
                  "/authorized_keys\nPasswordAuthentication no\nKbdInteractiveAuthentication no\n"
                  "PermitRootLogin prohibit-password\nUsePAM no\nStrictModes no\nLogLevel ERROR\n"
                  "MaxStartups 100\nSetEnv PATH=" +
                  sessionPath + kBin + "/companions:/usr/sbin:/usr/bin:/sbin:/bin VESSA_VLTT_INSTALL_DIR=" +
                  t + "/install " + sessionEnv + "\n");
    config = dir.write("ssh_config", "Host" + hosts + "\n  Port " + p + "\n  User root\n  IdentityFile " + t +
                                         "/client_key\n  IdentitiesOnly yes\n  UserKnownHostsFile " + t +
                                         "/known_hosts\n  GlobalKnownHostsFile /dev/null\n"
                                         "  StrictHostKeyChecking yes\n");
    exec::LaunchProperty launch;
    launch.setStdin(exec::LaunchProperty::Stream::Null)
        .setStdout(exec::LaunchProperty::Stream::Null)
        .setStderr(exec::LaunchProperty::Stream::Null);
    // The first process of a PID namespace of its own: when it ends, so does every session, and with
    // them the shared connections on this side. The namespace gets its own /proc, so that a program
    // of a session sees itself there (the leak checker of a sanitized build stops its threads
    // through it), and its own /run, whose /run/sshd (which sshd needs for every connection) no other
    // daemon of another test can take away while this one runs.
    daemon = exec::Process::create(
        "/usr/bin/unshare",
        {"--pid", "--fork", "--kill-child", "--mount-proc", "/bin/sh", "-c",
         "mount -t tmpfs -o mode=755 tmpfs /run && mkdir /run/sshd && exec /usr/sbin/sshd -D -e -f \"$0\"",
         t + "/sshd_config"},
        launch);
    for (int i = 0; i < 100 && !socketAt(addresses.front(), port, false); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ready = socketAt(addresses.front(), port, false) != 0;
}

TestSshd::~TestSshd() {
    if (daemon.valid()) {
        ::kill(daemon.pid(), SIGKILL);
        daemon.wait();
    }
}

SshAnswer TestSshd::run(const std::string& program, const std::list<std::string>& args, bool withConfig,
                        unsigned int timeoutSeconds) {
    exec::RunStreams streams;
    SshAnswer r;
    streams.output = [&r](const char* d, std::size_t n) { r.out.append(d, n); };
    streams.error = [&r](const char* d, std::size_t n) { r.err.append(d, n); };
    streams.hasEnv = true;
    streams.env = exec::Process::envVars();
    streams.env.vars["PATH"] = kBin + "/companions:" + streams.env.vars["PATH"];
    streams.env.vars["XDG_RUNTIME_DIR"] = dir.path();
    streams.env.vars.erase("VESSA_SSH_CONFIG");
    if (withConfig) {
        streams.env.vars["VESSA_SSH_CONFIG"] = config;
    }
    exec::RunLimits limits;
    limits.timeoutSeconds = timeoutSeconds;
    const exec::RunResult result = exec::runBounded(program, args, streams, limits);
    r.status = result.outcome == exec::RunResult::Exited ? result.status : -1;
    return r;
}

}  // namespace vessa::test
