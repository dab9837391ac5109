// Remote queries for real: a throw-away sshd on 127.0.0.2 with its own host key and authorized key,
// reached through a temporary SSH configuration by vessa-storage, pelo, korvo and vessa.shed.env as
// built here. Root only (sshd must become the user it logs in); everything is stopped and removed at the
// end of the test, also when it fails.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>
#include <tuple>

#include <nlohmann/json.hpp>

#include "platform/Process.h"
#include "platform/hax/SshTransport.h"
#include "support/TestSshd.h"

namespace exec = vessa::sal::exec;

namespace {

using Answer = vessa::test::SshAnswer;

const std::string kBin = VESSA_BINARY_DIR, kStorage = kBin + "/cli/vessa-storage";
const char* const kAddress = "127.0.0.2";

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

TEST(Remote, ListLauncherAndInstallDirectoryOverSsh) {
    if (!vessa::test::canRunSshd()) {
        GTEST_SKIP() << "needs root and openssh-server";
    }
    vessa::test::TestSshd sshd({kAddress});
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

    // (A fleet with a host that refuses is Fleet.WindowStatusesStreamsAndRetryListOverSsh.)

    // The launcher passes the remote program's streams and status on, and names what could not run.
    const std::string pelo = kBin + "/companions/pelo";
    const Answer seven =
        sshd.run(pelo, {"--host", kAddress, "--exec", "sh", "-c", "echo out; echo err >&2; exit 7"}, true);
    EXPECT_EQ(std::tie(seven.status, seven.out, seven.err), std::make_tuple(7, "out\n", "err\n"));
    const Answer missing = sshd.run(pelo, {"--host", kAddress, "--exec", "no-such-program-here"}, true);
    EXPECT_EQ(missing.status, 255);
    EXPECT_EQ(missing.err, std::string("pelo: cannot run no-such-program-here on ") + kAddress +
                               ": no-such-program-here: not found\n");

    // A remote program ends with its session: the launcher ended on this side (here by the runner's
    // timeout) leaves nothing running on the host.
    const Answer cut = sshd.run(pelo, {"--host", kAddress, "--exec", "sleep", "299.25"}, true, 2);
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
    vessa::hax::SshTransport ssh(
        o, [](const std::string& p, const std::list<std::string>& a, const exec::RunStreams& s,
              const exec::RunLimits& l) { return exec::runBounded(p, a, s, l); });
    EXPECT_EQ(ssh.envValueOf(kAddress, "VESSA_VLTT_INSTALL_DIR"), sshd.dir.path() + "/install");
}

}  // namespace
