// Remote queries for real: a throw-away sshd on 127.0.0.2 with its own host key and authorized key,
// reached through a temporary SSH configuration by vessa-storage, pelo, korvo and vessa.shed.env as
// built here; 127.0.0.3 is a second address where nothing answers. Root only (sshd must become the user
// it logs in); everything is stopped and removed at the end of the test, also when it fails.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>
#include <tuple>

#include <nlohmann/json.hpp>

#include "platform/Process.h"
#include "platform/hax/SshTransport.h"
#include "support/LoopDevice.h"
#include "support/TestSupport.h"

namespace exec = vessa::sal::exec;

namespace {

const std::string kBin = VESSA_BINARY_DIR, kStorage = kBin + "/cli/vessa-storage";
const char* const kAddress = "127.0.0.2";
const char* const kDead = "127.0.0.3";

// Binds (port 0: a free port, which it gives) or connects to `port` on 127.0.0.2; 0 when that fails.
int socketAt(int port, bool bind) {
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, kAddress, &a.sin_addr);
    socklen_t len = sizeof a;
    auto* any = reinterpret_cast<sockaddr*>(&a);
    const bool ok =
        bind ? ::bind(s, any, len) == 0 && ::getsockname(s, any, &len) == 0 : ::connect(s, any, len) == 0;
    ::close(s);
    return ok ? ntohs(a.sin_port) : 0;
}

struct Answer {
    int status = -1;
    std::string out, err;
    double seconds = 0;
};

struct TestSshd {
    vessa::test::TempDir dir;
    const int port = socketAt(0, true);
    std::string config;
    exec::Process daemon;
    bool madeRunDir = false, ready = false;

    TestSshd() {
        const std::string t = dir.path(), p = std::to_string(port);
        for (const char* key : {"host_key", "client_key"}) {
            std::string out;
            if (exec::runCaptured("ssh-keygen", {"-q", "-t", "ed25519", "-N", "", "-f", t + "/" + key},
                                  out) != 0) {
                return;
            }
        }
        dir.write("authorized_keys", vessa::test::readFile(t + "/client_key.pub"));
        dir.write("install/.keep", "");
        const std::string hostKey = vessa::test::readFile(t + "/host_key.pub");
        dir.write("known_hosts", "[" + std::string(kAddress) + "]:" + p + " " +
                                     hostKey.substr(0, hostKey.rfind(' ')) + "\n");
        dir.write("sshd_config",
                  "Port " + p + "\nListenAddress " + kAddress + "\nHostKey " + t + "/host_key\nPidFile " + t +
                      "/sshd.pid\nAuthorizedKeysFile " + t +
                      "/authorized_keys\nPasswordAuthentication no\nKbdInteractiveAuthentication no\n"
                      "PermitRootLogin prohibit-password\nUsePAM no\nStrictModes no\nLogLevel ERROR\n"
                      "SetEnv PATH=" +
                      kBin + "/companions:/usr/sbin:/usr/bin:/sbin:/bin VESSA_VLTT_INSTALL_DIR=" + t +
                      "/install\n");
        config = dir.write("ssh_config", std::string("Host ") + kAddress + " " + kDead + "\n  Port " + p +
                                             "\n  User root\n  IdentityFile " + t +
                                             "/client_key\n  IdentitiesOnly yes\n  UserKnownHostsFile " + t +
                                             "/known_hosts\n  GlobalKnownHostsFile /dev/null\n"
                                             "  StrictHostKeyChecking yes\n");
        madeRunDir = !std::filesystem::exists("/run/sshd") && ::mkdir("/run/sshd", 0755) == 0;
        exec::LaunchProperty launch;
        launch.setStdin(exec::LaunchProperty::Stream::Null)
            .setStdout(exec::LaunchProperty::Stream::Null)
            .setStderr(exec::LaunchProperty::Stream::Null);
        // The first process of a PID namespace of its own: when it ends, so does every session, and with
        // them the shared connections on this side. The namespace gets its own /proc, so that a program
        // of a session sees itself there (the leak checker of a sanitized build stops its threads
        // through it).
        daemon = exec::Process::create("/usr/bin/unshare",
                                       {"--pid", "--fork", "--kill-child", "--mount-proc", "/usr/sbin/sshd",
                                        "-D", "-e", "-f", t + "/sshd_config"},
                                       launch);
        for (int i = 0; i < 100 && !socketAt(port, false); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ready = socketAt(port, false) != 0;
    }

    ~TestSshd() {
        if (daemon.valid()) {
            ::kill(daemon.pid(), SIGKILL);
            daemon.wait();
        }
        if (madeRunDir) {
            ::rmdir("/run/sshd");
        }
    }

    // A program of this build with the companions on PATH and the sockets in the test's directory;
    // `withConfig` names the SSH configuration in VESSA_SSH_CONFIG (else only --ssh-config may).
    Answer run(const std::string& program, const std::list<std::string>& args, bool withConfig = false) {
        exec::RunStreams streams;
        Answer r;
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
        limits.timeoutSeconds = 60;
        const auto start = std::chrono::steady_clock::now();
        const exec::RunResult result = exec::runBounded(program, args, streams, limits);
        r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        r.status = result.outcome == exec::RunResult::Exited ? result.status : -1;
        return r;
    }
};

// Path, size and the A M P S V W columns of every physical device of a list document.
std::set<std::tuple<std::string, unsigned long long, std::string>> physical(const std::string& json) {
    std::set<std::tuple<std::string, unsigned long long, std::string>> out;
    const nlohmann::json doc = nlohmann::json::parse(json);
    for (const auto& item : doc["storage"]) {
        const std::string x = item["exclusions"];
        out.emplace(item["path"], item["size"], std::string{x[0], x[3], x[4], x[5], x[7], x[8]});
    }
    return out;
}

TEST(Remote, ListFleetLauncherAndInstallDirectoryOverSsh) {
    if (!vessa::test::runningAsRoot() || !std::filesystem::exists("/usr/sbin/sshd") ||
        !std::filesystem::exists("/usr/bin/ssh")) {
        GTEST_SKIP() << "needs root and openssh-server";
    }
    TestSshd sshd;
    ASSERT_TRUE(sshd.ready);
    // The remote list holds the local physical devices. Other tests may add loop devices meanwhile: it
    // must hold every device that both local runs around it saw, and nothing that neither saw.
    const Answer before = sshd.run(kStorage, {"list", "--json", "--type", "4"});
    const Answer remote =
        sshd.run(kStorage, {"list", "--json", "--host", kAddress, "--ssh-config", sshd.config});
    const Answer after = sshd.run(kStorage, {"list", "--json", "--type", "4"});
    ASSERT_EQ(remote.status, 0) << remote.err;
    ASSERT_EQ(before.status, 0);
    EXPECT_EQ(nlohmann::json::parse(remote.out)["host"], kAddress);
    const auto got = physical(remote.out), a = physical(before.out), b = physical(after.out);
    int stable = 0;
    for (const auto& d : a) {
        stable += b.count(d);
        EXPECT_TRUE(!b.count(d) || got.count(d)) << std::get<0>(d) << " " << remote.out;
    }
    EXPECT_GT(stable, 0);
    for (const auto& d : got) {
        EXPECT_TRUE(a.count(d) || b.count(d)) << std::get<0>(d);
    }

    // A fleet with a dead host fails that host by name while the other answers.
    const Answer fleet = sshd.run(kStorage, {"list", "--json", "--host", kAddress, "--host", kDead,
                                             "--command-timeout", "20", "--ssh-config", sshd.config});
    EXPECT_EQ(fleet.status, 1);
    EXPECT_LT(fleet.seconds, 30.0);  // ConnectTimeout (10 s) and the command timeout bound it
    EXPECT_NE(fleet.err.find(std::string("vessa-storage: ") + kDead + ": "), std::string::npos) << fleet.err;
    EXPECT_NE(fleet.err.find("Connection refused"), std::string::npos) << fleet.err;
    const nlohmann::json doc = nlohmann::json::parse(fleet.out);
    ASSERT_EQ(doc["hosts"].size(), 1u) << fleet.out;
    EXPECT_EQ(doc["hosts"][0]["host"], kAddress);
    EXPECT_FALSE(doc["hosts"][0]["storage"].empty());

    // The launcher passes the remote program's streams and status on, and names what could not run.
    const std::string pelo = kBin + "/companions/pelo";
    const Answer seven =
        sshd.run(pelo, {"--host", kAddress, "--exec", "sh", "-c", "echo out; echo err >&2; exit 7"}, true);
    EXPECT_EQ(std::tie(seven.status, seven.out, seven.err), std::make_tuple(7, "out\n", "err\n"));
    const Answer missing = sshd.run(pelo, {"--host", kAddress, "--exec", "no-such-program-here"}, true);
    EXPECT_EQ(missing.status, 255);
    EXPECT_EQ(missing.err, std::string("pelo: cannot run no-such-program-here on ") + kAddress +
                               ": no-such-program-here: not found\n");

    vessa::hax::SshTransport::Options o;
    o.configFile = sshd.config;
    o.controlDirectory = sshd.dir.path() + "/vessa-ssh";
    vessa::hax::SshTransport ssh(
        o, [](const std::string& p, const std::list<std::string>& a, const exec::RunStreams& s,
              const exec::RunLimits& l) { return exec::runBounded(p, a, s, l); });
    EXPECT_EQ(ssh.envValueOf(kAddress, "VESSA_VLTT_INSTALL_DIR"), sshd.dir.path() + "/install");
}

}  // namespace
