// Remote queries for real, over the throw-away sshd (support/TestSshd.h) with vessa-storage, pelo, korvo
// and vessa.shed.env as built here: a fleet of four addresses where it answers, one where nothing
// listens and one that accepts connections and never speaks; the launcher's streams and statuses; the
// licence information changed and read back, over SSH and on this machine. Root only; everything is
// stopped and removed at the end, also on failure.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <thread>
#include <tuple>

#include <nlohmann/json.hpp>

#include "platform/Exception.h"
#include "platform/Process.h"
#include "platform/hax/SshTransport.h"
#include "platform/view/SystemView.h"
#include "support/TestSshd.h"
#include "target/Host.h"

namespace {

const std::string kBin = VESSA_BINARY_DIR, kStorage = kBin + "/cli/vessa-storage";
const std::vector<std::string> kAnswering = {"127.0.0.2", "127.0.0.4", "127.0.0.5", "127.0.0.6"};
const std::string kRefusing = "127.0.0.3", kMute = "127.0.0.7";

// A listener on `address`:`port` whose connections the kernel accepts and nobody ever answers.
struct MuteListener {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    MuteListener(const std::string& address, int port) {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(port));
        ::inet_pton(AF_INET, address.c_str(), &a.sin_addr);
        ok = ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 && ::listen(fd, 16) == 0;
    }
    ~MuteListener() { ::close(fd); }
    bool ok = false;
};

// The most listing tools that ran at once, from the "+1"/"-1" lines with times that each wrote.
int mostAtOnce(const std::string& log) {
    std::vector<std::pair<long long, int>> events;
    std::istringstream in(log);
    for (long long t; in >> t;) {
        int step = 0;
        in >> step;
        events.emplace_back(t, step);
    }
    std::sort(events.begin(), events.end());
    int now = 0, most = 0;
    for (const auto& e : events) {
        most = std::max(most, now += e.second);
    }
    return most;
}

// path -> "size, the A M P S V W columns, verdict" of a list document's items (its disks only, when
// `disksOnly`): what a listing carries of an item, and what the host's own run made of it.
std::map<std::string, std::string> items(const nlohmann::json& doc, bool disksOnly) {
    std::map<std::string, std::string> out;
    for (const auto& item : doc["storage"]) {
        const std::string x = item["exclusions"];
        if (!disksOnly || item["kind"] == "disk") {
            out[item["path"]] = item["size"].dump() + " " + std::string{x[0], x[3], x[4], x[5], x[7], x[8]} +
                                " " + item["verdict"]["is"].get<std::string>();
        }
    }
    return out;
}

// Whether a process of this machine has `word` among its arguments.
bool runningWith(const std::string& word) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream in(entry.path() / "cmdline");
        for (std::string arg; std::getline(in, arg, '\0');) {
            if (arg == word) {
                return true;
            }
        }
    }
    return false;
}

TEST(Fleet, WindowStatusesStreamsAndRetryListOverSsh) {
    if (!vessa::test::canRunSshd()) {
        GTEST_SKIP() << "needs root and openssh-server";
    }
    // The listing tool of the sessions notes when it runs, a second at least, so that runs overlap.
    vessa::test::TempDir tools;
    const std::string log = tools.path() + "/runs";
    tools.write("bin/korvo", "#!/bin/sh\necho \"$(date +%s%N) 1\" >> " + log + "\nsleep 1\n" + kBin +
                                 "/companions/korvo \"$@\"; s=$?\necho \"$(date +%s%N) -1\" >> " + log +
                                 "\nexit $s\n");
    ::chmod((tools.path() + "/bin/korvo").c_str(), 0755);
    vessa::test::TestSshd sshd(kAnswering, {kRefusing, kMute}, "", tools.path() + "/bin:");
    ASSERT_TRUE(sshd.ready);
    MuteListener mute(kMute, sshd.port);
    ASSERT_TRUE(mute.ok);

    // The deadline leaves the answering hosts time on a busy machine; the mute one is ended by ssh's
    // connect timeout (10 s, its one call) before it.
    std::list<std::string> args = {
        "list",         "--parallel",   "2",         "--deadline",     "120",
        "--json-lines", "--ssh-config", sshd.config, "--failed-hosts", sshd.dir.path() + "/retry"};
    for (const std::string& h :
         {kAnswering[0], kAnswering[1], kRefusing, kMute, kAnswering[2], kAnswering[3]}) {
        args.insert(args.end(), {"--host", h});
    }
    const vessa::test::SshAnswer before = sshd.run(kStorage, {"list", "--json"}, false, 300);
    const vessa::test::SshAnswer streamed = sshd.run(kStorage, args, false, 300);
    const vessa::test::SshAnswer after = sshd.run(kStorage, {"list", "--json"}, false, 300);
    EXPECT_EQ(streamed.status, 1) << streamed.err;
    EXPECT_EQ(mostAtOnce(vessa::test::readFile(log)), 2);
    EXPECT_NE(streamed.err.find("vessa-storage: 4 ok, 1 unreachable, 1 timeout\n"), std::string::npos)
        << streamed.err;
    EXPECT_EQ(streamed.err.find("does not say which devices are in use"), std::string::npos) << streamed.err;
    EXPECT_EQ(vessa::test::readFile(sshd.dir.path() + "/retry"), kRefusing + "\n" + kMute + "\n");

    // One document a line, each host once. The answering ones list this machine's disks as its own run
    // does, verdicts included. Other work on this machine may add or remove loop devices meanwhile: each
    // holds every disk that both local runs around it saw alike, and nothing that neither saw.
    const auto local = items(nlohmann::json::parse(before.out), true),
               later = items(nlohmann::json::parse(after.out), true);
    std::map<std::string, std::string> status;
    int compared = 0;
    std::istringstream in(streamed.out);
    for (std::string line; std::getline(in, line);) {
        const nlohmann::json doc = nlohmann::json::parse(line);
        const std::string host = doc["host"], message = doc["message"];
        EXPECT_TRUE(status.emplace(host, doc["status"]).second) << host;
        if (doc["status"] != "ok") {
            EXPECT_TRUE(doc["storage"].empty());
            EXPECT_NE(message.find(host == kMute ? "timed out" : "Connection refused"), std::string::npos)
                << message;
            continue;
        }
        const auto remote = items(doc, false);
        for (const auto& [path, is] : local) {
            if (later.count(path) && later.at(path) == is) {
                EXPECT_EQ(remote.count(path) ? remote.at(path) : "missing", is) << host << " " << path;
                ++compared;
            }
        }
        for (const auto& [path, is] : remote) {
            EXPECT_TRUE((local.count(path) && local.at(path) == is) ||
                        (later.count(path) && later.at(path) == is))
                << host << " " << path << " " << is;
        }
    }
    EXPECT_GT(compared, 0) << streamed.out;
    EXPECT_EQ(status, (std::map<std::string, std::string>{{kAnswering[0], "ok"},
                                                          {kAnswering[1], "ok"},
                                                          {kAnswering[2], "ok"},
                                                          {kAnswering[3], "ok"},
                                                          {kRefusing, "unreachable"},
                                                          {kMute, "timeout"}}))
        << streamed.out;
}

TEST(Fleet, LicenceRoundTripOverSshAndHere) {
    if (!vessa::test::canRunSshd()) {
        GTEST_SKIP() << "needs root and openssh-server";
    }
    vessa::test::TempDir there, here;
    vessa::test::TestSshd sshd({"127.0.0.2"}, {}, "VESSA_CONFIG_DIR=" + there.path() + "/etc");
    ASSERT_TRUE(sshd.ready);
    namespace sys = vessa::sal::sys;
    // The library runs the launcher by name: it is found on this process's PATH.
    const std::string path = std::getenv("PATH");
    ::setenv("PATH", (kBin + "/companions:" + path).c_str(), 1);
    sys::setCommandVariable("PATH", kBin + "/companions:/usr/sbin:/usr/bin:/sbin:/bin");
    sys::setCommandVariable("VESSA_CONFIG_DIR", here.path() + "/etc");
    vessa::hax::setSshConfig(sshd.config);
    const auto ssh = std::make_shared<vessa::hax::SshTransport>();
    vessa::hax::setTransport(ssh);
    for (const std::string name : {"127.0.0.2", "localhost"}) {
        const std::string file = (name == "localhost" ? here : there).path() + "/etc/license";
        std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named(name, false));
        EXPECT_EQ(host->licenseInfo().server(), "");
        vessa::target::LicenseInfo info;
        info.setProvider("flexi");
        info.setServer("lic.example.net");
        info.setPort("27000");
        info.setExpiry("2027-06-30");
        info.setFeature("san-suite");
        host->updateLicenseInfo(info);
        EXPECT_EQ(vessa::test::readFile(file),
                  "license.provider=flexi\nlicense.server=lic.example.net\nlicense.port=27000\n"
                  "license.expiry=2027-06-30\nlicense.feature=san-suite\n");
        std::unique_ptr<vessa::target::Host> again(vessa::target::Host::named(name, false));
        for (const vessa::target::Host* h : {host.get(), again.get()}) {
            const vessa::target::LicenseInfo& got = h->licenseInfo();
            EXPECT_EQ(
                std::vector<std::string>(
                    {got.provider(), got.server(), got.port(), got.expiry(), got.feature()}),
                std::vector<std::string>({"flexi", "lic.example.net", "27000", "2027-06-30", "san-suite"}))
                << name;
        }
        info.setServer("");
        again->updateLicenseInfo(info);
        EXPECT_EQ(again->licenseInfo().server(), "") << name;
        EXPECT_EQ(again->licenseInfo().port(), "27000") << name;
        info.setFeature("two\nlines");
        EXPECT_THROW(again->updateLicenseInfo(info), vessa::Exception);
    }
    ssh->endConnections({"127.0.0.2"});
    vessa::hax::setTransport(nullptr);
    vessa::hax::setSshConfig("");
    vessa::hax::clearHostCache();
    sys::setCommandVariable("VESSA_CONFIG_DIR", "");
    sys::setCommandVariable("PATH", "");
    ::setenv("PATH", path.c_str(), 1);
}

// The launcher passes the remote program's streams and status on, and names what could not run; a
// remote program ends with its session; the agent's environment question is answered by the session.
TEST(Remote, LauncherAndInstallDirectoryOverSsh) {
    if (!vessa::test::canRunSshd()) {
        GTEST_SKIP() << "needs root and openssh-server";
    }
    vessa::test::TestSshd sshd({"127.0.0.2"});
    ASSERT_TRUE(sshd.ready);
    const std::string pelo = kBin + "/companions/pelo";
    const vessa::test::SshAnswer seven =
        sshd.run(pelo, {"--host", "127.0.0.2", "--exec", "sh", "-c", "echo out; echo err >&2; exit 7"}, true);
    EXPECT_EQ(std::tie(seven.status, seven.out, seven.err), std::make_tuple(7, "out\n", "err\n"));
    const vessa::test::SshAnswer missing =
        sshd.run(pelo, {"--host", "127.0.0.2", "--exec", "no-such-program-here"}, true);
    EXPECT_EQ(missing.status, 255);
    EXPECT_EQ(missing.err,
              "pelo: cannot run no-such-program-here on 127.0.0.2: no-such-program-here: not found\n");

    // The launcher ended on this side (here by the runner's timeout) leaves nothing running on the host.
    const vessa::test::SshAnswer cut =
        sshd.run(pelo, {"--host", "127.0.0.2", "--exec", "sleep", "299.25"}, true, 2);
    EXPECT_EQ(cut.status, -1);
    bool ended = false;
    for (int i = 0; i < 50 && !ended; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ended = !runningWith("299.25");
    }
    EXPECT_TRUE(ended) << "the remote sleep outlived its session";

    vessa::hax::SshTransport::Options o;
    o.configFile = sshd.config;
    o.controlDirectory = sshd.dir.path() + "/vessa-ssh";
    namespace exec = vessa::sal::exec;
    vessa::hax::SshTransport ssh(
        o, [](const std::string& p, const std::list<std::string>& a, const exec::RunStreams& s,
              const exec::RunLimits& l) { return exec::runBounded(p, a, s, l); });
    EXPECT_EQ(ssh.envValueOf("127.0.0.2", "VESSA_VLTT_INSTALL_DIR"), sshd.dir.path() + "/install");
}

}  // namespace
