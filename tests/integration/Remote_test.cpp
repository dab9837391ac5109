// Remote queries for real: a throw-away sshd on 127.0.0.2 with its own host key and authorized key,
// reached through a temporary SSH configuration by vessa-storage, pelo, korvo and vessa.shed.env as
// built here. Root only (sshd must become the user it logs in); everything is stopped and removed at
// the end of the test, also when it fails.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <thread>
#include <tuple>

#include <nlohmann/json.hpp>

#include "platform/Exception.h"
#include "platform/Process.h"
#include "platform/hax/SshTransport.h"
#include "support/LoopDevice.h"
#include "support/TestSupport.h"

namespace exec = vessa::sal::exec;

namespace {

const std::string kBin = VESSA_BINARY_DIR;
const char* const kAddress = "127.0.0.2";
const char* const kDead = "127.0.0.3";

// A port on 127.0.0.2 that nothing listens on now.
int freePort() {
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    ::inet_pton(AF_INET, kAddress, &a.sin_addr);
    socklen_t len = sizeof a;
    int port = 0;
    if (::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
        port = ntohs(a.sin_port);
    }
    ::close(s);
    return port;
}

bool accepts(int port) {
    const int s = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, kAddress, &a.sin_addr);
    const bool ok = ::connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    ::close(s);
    return ok;
}

// Every process below `pid`, children first found first.
std::vector<pid_t> descendants(pid_t pid) {
    std::vector<std::pair<pid_t, pid_t>> all;  // pid, parent
    if (DIR* d = ::opendir("/proc")) {
        while (dirent* e = ::readdir(d)) {
            const pid_t p = static_cast<pid_t>(std::atoi(e->d_name));
            std::string stat = vessa::test::readFile("/proc/" + std::string(e->d_name) + "/stat");
            const std::string::size_type close = stat.rfind(')');
            if (p > 0 && close != std::string::npos) {
                int parent = 0;
                char state = 0;
                std::istringstream(stat.substr(close + 1)) >> state >> parent;
                all.emplace_back(p, static_cast<pid_t>(parent));
            }
        }
        ::closedir(d);
    }
    std::vector<pid_t> found = {pid};
    for (std::size_t i = 0; i < found.size(); ++i) {
        for (const auto& [p, parent] : all) {
            if (parent == found[i]) {
                found.push_back(p);
            }
        }
    }
    found.erase(found.begin());
    return found;
}

struct Answer {
    int status = -1;
    std::string out, err;
    double seconds = 0;
};

class TestSshd {
  public:
    TestSshd() {
        port_ = freePort();
        const std::string t = dir_.path();
        for (const char* key : {"host_key", "client_key"}) {
            std::string out;
            if (exec::runCaptured("ssh-keygen", {"-q", "-t", "ed25519", "-N", "", "-f", t + "/" + key},
                                  out) != 0) {
                return;
            }
        }
        dir_.write("authorized_keys", vessa::test::readFile(t + "/client_key.pub"));
        dir_.write("install/.keep", "");
        const std::string hostKey = vessa::test::readFile(t + "/host_key.pub");
        dir_.write("known_hosts", "[" + std::string(kAddress) + "]:" + std::to_string(port_) + " " +
                                      hostKey.substr(0, hostKey.rfind(' ')) + "\n");
        dir_.write("sshd_config",
                   "Port " + std::to_string(port_) + "\nListenAddress " + kAddress + "\nHostKey " + t +
                       "/host_key\nPidFile " + t + "/sshd.pid\nAuthorizedKeysFile " + t +
                       "/authorized_keys\nPasswordAuthentication no\nKbdInteractiveAuthentication no\n"
                       "PermitRootLogin prohibit-password\nUsePAM no\nStrictModes no\nLogLevel ERROR\n"
                       "SetEnv PATH=" +
                       kBin +
                       "/companions:/usr/sbin:/usr/bin:/sbin:/bin "
                       "VESSA_VLTT_INSTALL_DIR=" +
                       t + "/install\n");
        config_ =
            dir_.write("ssh_config", std::string("Host ") + kAddress + " " + kDead + "\n  Port " +
                                         std::to_string(port_) + "\n  User root\n  IdentityFile " + t +
                                         "/client_key\n  IdentitiesOnly yes\n  UserKnownHostsFile " + t +
                                         "/known_hosts\n  GlobalKnownHostsFile /dev/null\n"
                                         "  StrictHostKeyChecking yes\n");
        struct stat st;
        if (::stat("/run/sshd", &st) != 0) {
            madeRunDir_ = ::mkdir("/run/sshd", 0755) == 0;
        }
        exec::LaunchProperty launch;
        launch.setStdin(exec::LaunchProperty::Stream::Null)
            .setStdout(exec::LaunchProperty::Stream::Null)
            .setStderr(exec::LaunchProperty::Stream::Null);
        sshd_ = exec::Process::create("/usr/sbin/sshd", {"-D", "-e", "-f", t + "/sshd_config"}, launch);
        for (int i = 0; i < 100 && !accepts(port_); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ready_ = accepts(port_);
    }

    ~TestSshd() {
        // The shared connections first (they end their sessions), then every session, then the daemon.
        const std::string sockets = dir_.path() + "/vessa-ssh";
        if (DIR* d = ::opendir(sockets.c_str())) {
            while (dirent* e = ::readdir(d)) {
                if (e->d_name[0] != '.') {
                    std::string out;
                    exec::RunLimits limits;
                    limits.timeoutSeconds = 5;
                    exec::runBounded("ssh", {"-S", sockets + "/" + e->d_name, "-O", "exit", kAddress}, out,
                                     limits);
                }
            }
            ::closedir(d);
        }
        if (sshd_.valid()) {
            for (pid_t p : descendants(sshd_.pid())) {
                ::kill(p, SIGKILL);
            }
            ::kill(sshd_.pid(), SIGTERM);
            int status = 0;
            if (!sshd_.waitFor(5000, status)) {
                ::kill(sshd_.pid(), SIGKILL);
                sshd_.wait();
            }
        }
        if (madeRunDir_) {
            ::rmdir("/run/sshd");
        }
    }

    bool ready() const { return ready_; }
    const std::string& config() const { return config_; }
    const std::string& dir() const { return dir_.path(); }

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
        streams.env.vars["XDG_RUNTIME_DIR"] = dir_.path();
        if (withConfig) {
            streams.env.vars["VESSA_SSH_CONFIG"] = config_;
        } else {
            streams.env.vars.erase("VESSA_SSH_CONFIG");
        }
        exec::RunLimits limits;
        limits.timeoutSeconds = 60;
        const auto start = std::chrono::steady_clock::now();
        const exec::RunResult result = exec::runBounded(program, args, streams, limits);
        r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        r.status = result.outcome == exec::RunResult::Exited ? result.status : -1;
        return r;
    }

  private:
    vessa::test::TempDir dir_;
    int port_ = 0;
    std::string config_;
    exec::Process sshd_;
    bool madeRunDir_ = false;
    bool ready_ = false;
};

bool canRun() {
    struct stat st;
    return vessa::test::runningAsRoot() && ::stat("/usr/sbin/sshd", &st) == 0 &&
           ::stat("/usr/bin/ssh", &st) == 0;
}

// Path, size and the A M P S V W columns of every physical device of a list document.
typedef std::set<std::tuple<std::string, unsigned long long, std::string>> Devices;
Devices physical(const nlohmann::json& doc) {
    Devices out;
    for (const auto& item : doc["storage"]) {
        const std::string x = item["exclusions"];
        out.emplace(item["path"], item["size"], std::string{x[0], x[3], x[4], x[5], x[7], x[8]});
    }
    return out;
}

const std::string kStorage = kBin + "/cli/vessa-storage";

TEST(Remote, ListOverSshGivesTheLocalPhysicalDevices) {
    if (!canRun()) {
        GTEST_SKIP() << "needs root and openssh-server";
    }
    TestSshd sshd;
    ASSERT_TRUE(sshd.ready());
    // Other tests may add loop devices meanwhile: the remote answer must hold every device that both
    // local runs around it saw, and nothing that neither saw.
    const Answer before = sshd.run(kStorage, {"list", "--json", "--type", "4"});
    const Answer remote =
        sshd.run(kStorage, {"list", "--json", "--host", kAddress, "--ssh-config", sshd.config()});
    const Answer after = sshd.run(kStorage, {"list", "--json", "--type", "4"});
    ASSERT_EQ(remote.status, 0) << remote.err;
    ASSERT_EQ(before.status, 0);
    const nlohmann::json doc = nlohmann::json::parse(remote.out);
    EXPECT_EQ(doc["host"], kAddress);
    const Devices got = physical(doc), a = physical(nlohmann::json::parse(before.out)),
                  b = physical(nlohmann::json::parse(after.out));
    int stable = 0;
    for (const auto& d : a) {
        if (b.count(d)) {
            ++stable;
            EXPECT_EQ(got.count(d), 1u) << std::get<0>(d) << " " << remote.out;
        }
    }
    EXPECT_GT(stable, 0);
    for (const auto& d : got) {
        EXPECT_TRUE(a.count(d) || b.count(d)) << std::get<0>(d);
    }
}

TEST(Remote, FleetFailsTheDeadHostByNameWhileTheOtherAnswers) {
    if (!canRun()) {
        GTEST_SKIP() << "needs root and openssh-server";
    }
    TestSshd sshd;
    ASSERT_TRUE(sshd.ready());
    const Answer r = sshd.run(kStorage, {"list", "--json", "--host", kAddress, "--host", kDead,
                                         "--command-timeout", "20", "--ssh-config", sshd.config()});
    EXPECT_EQ(r.status, 1);
    EXPECT_LT(r.seconds, 30.0);  // ConnectTimeout (10 s) and the command timeout bound it
    EXPECT_NE(r.err.find(std::string("vessa-storage: ") + kDead + ": "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("Connection refused"), std::string::npos) << r.err;
    const nlohmann::json doc = nlohmann::json::parse(r.out);
    ASSERT_EQ(doc["hosts"].size(), 1u) << r.out;
    EXPECT_EQ(doc["hosts"][0]["host"], kAddress);
    EXPECT_FALSE(doc["hosts"][0]["storage"].empty());
}

TEST(Remote, LauncherStatusesAndTheInstallDirectoryOverSsh) {
    if (!canRun()) {
        GTEST_SKIP() << "needs root and openssh-server";
    }
    TestSshd sshd;
    ASSERT_TRUE(sshd.ready());
    const std::string pelo = kBin + "/companions/pelo";
    const Answer seven =
        sshd.run(pelo, {"--host", kAddress, "--exec", "sh", "-c", "echo out; echo err >&2; exit 7"}, true);
    EXPECT_EQ(seven.status, 7);
    EXPECT_EQ(seven.out, "out\n");
    EXPECT_EQ(seven.err, "err\n");
    const Answer missing = sshd.run(pelo, {"--host", kAddress, "--exec", "no-such-program-here"}, true);
    EXPECT_EQ(missing.status, 255);
    EXPECT_EQ(missing.err, std::string("pelo: cannot run no-such-program-here on ") + kAddress +
                               ": no-such-program-here: not found\n");

    vessa::hax::SshTransport::Options o;
    o.configFile = sshd.config();
    o.controlDirectory = sshd.dir() + "/vessa-ssh";
    vessa::hax::SshTransport ssh(
        o, [](const std::string& p, const std::list<std::string>& a, const exec::RunStreams& s,
              const exec::RunLimits& l) { return exec::runBounded(p, a, s, l); });
    EXPECT_EQ(ssh.envValueOf(kAddress, "VESSA_VLTT_INSTALL_DIR"), sshd.dir() + "/install");
}

}  // namespace
