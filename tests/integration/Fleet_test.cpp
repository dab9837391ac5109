// A fleet over the throw-away sshd: four addresses where it answers, one where nothing listens and one
// that accepts connections and never speaks. Then the licence information changed and read back, over
// SSH and on this machine. Root only; everything is stopped and removed at the end, also on failure.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>

#include <nlohmann/json.hpp>

#include "platform/Exception.h"
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

// path -> verdict of a list document's items.
std::map<std::string, std::string> verdicts(const nlohmann::json& doc) {
    std::map<std::string, std::string> out;
    for (const auto& item : doc["storage"]) {
        out[item["path"]] = item["verdict"]["is"];
    }
    return out;
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

    // One document a line, each host once. The answering ones carry the verdicts of the host's own
    // run, which is this machine's: the same as a local run gives, wherever two local runs agree.
    const auto local = verdicts(nlohmann::json::parse(before.out)),
               later = verdicts(nlohmann::json::parse(after.out));
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
        const auto remote = verdicts(doc);
        for (const auto& [path, is] : local) {
            if (later.count(path) && later.at(path) == is && remote.count(path)) {
                EXPECT_EQ(remote.at(path), is) << host << " " << path;
                ++compared;
            }
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

}  // namespace
