#include "platform/hax/SshTransport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <thread>

#include "platform/Exception.h"
#include "platform/view/SystemView.h"
#include "support/TestSupport.h"

using vessa::hax::SshTransport;
namespace exec = vessa::sal::exec;
using namespace ::testing;

namespace {

// Names a remote host may be handed: every one must reach the remote program as it is.
const std::vector<std::string> kHostile = {"plain",      "with blank", "it's",      "'",  "''\\'",
                                           "$(touch x)", "`id`",       "a;b|c&d",   "*",  "-n",
                                           "",           "~root",      "line\nend", "\\", "\"q\" $HOME"};

const std::list<std::string> kOptions = {
    "-F", "/etc/vessa/ssh_config",  "-o", "BatchMode=yes",         "-o", "ConnectTimeout=7",
    "-o", "ServerAliveInterval=15", "-o", "ServerAliveCountMax=3", "-o", "ControlMaster=auto",
    "-o", "ControlPath=/ctl/%C",    "-o", "ControlPersist=60",     "-T"};

// Stands in for ssh to 127.0.0.9: checks the argument vector of every call, then hands the remote
// command line to a local shell, as the remote login shell would get it, on a host where the tools are
// installed and the session sets no install directory.
SshTransport loopback() {
    SshTransport::Options o;
    o.connectTimeout = 7;
    o.configFile = "/etc/vessa/ssh_config";
    o.controlDirectory = "/ctl";
    return SshTransport(o, [](const std::string& program, const std::list<std::string>& args,
                              const exec::RunStreams& streams, const exec::RunLimits& limits) {
        std::list<std::string> expected = kOptions;
        if (streams.inputFile.empty()) {
            expected.push_back("-n");  // only a file being put is standard input
        }
        expected.insert(expected.end(), {"--", "127.0.0.9"});
        EXPECT_EQ(program, "ssh");
        EXPECT_EQ(std::list<std::string>(args.begin(), std::prev(args.end())), expected);
        EXPECT_EQ(args.back().rfind("sh -c ", 0), 0u) << args.back();
        exec::RunStreams local = streams;
        local.env.vars.erase("VESSA_VLTT_INSTALL_DIR");
        local.env.vars["PATH"] = std::string(VESSA_BINARY_DIR) + "/companions:" + local.env.vars["PATH"];
        return exec::runBounded("/bin/sh", {"-c", args.back()}, local, limits);
    });
}

TEST(SshTransport, QuotingCarriesHostileWordsIntact) {
    EXPECT_EQ(vessa::hax::shellQuote("it's"), "'it'\\''s'");
    EXPECT_THROW(vessa::hax::shellQuote(std::string("a\0b", 3)), vessa::Exception);
    std::string out, expected;
    exec::runCaptured(
        "/bin/sh",
        {"-c", vessa::hax::remoteCommandLine("printf '%s\\0' \"$@\"", {kHostile.begin(), kHostile.end()})},
        out);
    for (const std::string& w : kHostile) {
        expected += w + '\0';
    }
    EXPECT_EQ(out, expected);
}

TEST(SshTransport, EveryOperationThroughALoopbackShell) {
    vessa::test::TempDir dir;
    SshTransport t = loopback();
    const std::string address = "127.0.0.9", bytes("bytes\0and\nmore", 14);
    EXPECT_EQ(t.envValueOf(address, "HOME"), std::getenv("HOME"));
    EXPECT_EQ(t.envValueOf(address, "VESSA_SURELY_UNSET_VARIABLE"), "");
    EXPECT_EQ(t.envValueOf(address, "VESSA_VLTT_INSTALL_DIR"), std::string(VESSA_BINARY_DIR) + "/companions");
    const std::string src = dir.write("source", bytes);
    for (const std::string& name : kHostile) {
        if (name.empty() || name == "-n" || name.find('\\') != std::string::npos) {
            continue;  // an empty name is the directory itself; "-n" and "\" are tried by the shell above
        }
        const std::string remote = dir.path() + "/r " + name;
        t.putFSItem(address, src, remote);
        std::list<vessa::hax::FSItem> items;
        t.listDirectory(address, dir.path(), items);
        std::multiset<std::pair<std::string, int>> listed;
        for (const auto& i : items) {
            listed.emplace(i.name(), i.type());
        }
        EXPECT_EQ(listed.count({"r " + name, vessa::hax::FSItem::file}), 1u) << name;
        t.getFSItem(address, remote, dir.path() + "/back");
        EXPECT_EQ(vessa::test::readFile(dir.path() + "/back"), bytes) << name;
        t.deleteFSItem(address, remote);
    }
    std::list<vessa::hax::FSItem> items;
    EXPECT_EQ(t.listDirectory(address, dir.path(), items), 2);  // source and back, in name order
    EXPECT_EQ(items.front().name(), "back");
    // Links planted at the copy's name, and at the name of the partial copy beside it, are not written
    // through.
    const std::string back = dir.path() + "/back", victim = dir.write("victim", "precious");
    std::filesystem::remove(back);
    ASSERT_EQ(::symlink(victim.c_str(), back.c_str()), 0);
    ASSERT_EQ(::symlink(victim.c_str(), (back + ".part").c_str()), 0);
    t.getFSItem(address, src, back);
    EXPECT_EQ(vessa::test::readFile(back), bytes);
    EXPECT_EQ(vessa::test::readFile(victim), "precious");

    // A run reports the status, passes the streams on and names what could not run.
    exec::RunLimits limits;
    std::string out, err;
    auto toOut = [&out](const char* d, std::size_t n) { out.append(d, n); };
    auto toErr = [&err](const char* d, std::size_t n) { err.append(d, n); };
    const std::string work = dir.path() + "/new dir/it's";
    EXPECT_EQ(t.run(address, work, true, "sh", {"-c", "pwd; echo oops >&2; exit 7"}, toOut, toErr, limits),
              7);
    EXPECT_EQ(out, work + "\n");
    EXPECT_EQ(err, "oops\n");  // the start line is not passed on
    auto fails = [](const char* reason) {
        return ThrowsMessage<vessa::Exception>(AllOf(HasSubstr("on 127.0.0.9: "), HasSubstr(reason)));
    };
    EXPECT_THAT([&] { t.run(address, dir.path() + "/missing", false, "true", {}, toOut, toErr, limits); },
                fails("can't cd to"));
    EXPECT_THAT([&] { t.run(address, "", false, "no-such-program-here", {}, toOut, toErr, limits); },
                fails("no-such-program-here: not found"));
}

TEST(SshTransport, FailuresNameTheHostAndSshsReason) {
    const struct {
        exec::RunResult::Outcome outcome;
        int status;
        std::string stderrText, expected;
    } cases[] = {
        {exec::RunResult::Exited, 255,
         "Warning: x\r\nssh: connect to host 127.0.0.3 port 22: Connection refused\r\n",
         "cannot reach 127.0.0.3 reading the environment value X: ssh: connect to host 127.0.0.3 port 22: "
         "Connection refused"},
        {exec::RunResult::Exited, 255, "",
         "cannot reach 127.0.0.3 reading the environment value X: ssh ended with status 255"},
        {exec::RunResult::TimedOut, 0, "",
         "no answer from 127.0.0.3 for reading the environment value X within"},
    };
    for (const auto& c : cases) {
        SshTransport::Options o;
        o.controlDirectory = "/ctl";
        SshTransport t(o, [&c](const std::string&, const std::list<std::string>&, const exec::RunStreams& s,
                               const exec::RunLimits&) {
            s.error(c.stderrText.data(), c.stderrText.size());
            exec::RunResult r;
            r.outcome = c.outcome;
            r.status = c.status;
            return r;
        });
        EXPECT_THAT([&t] { t.envValueOf("127.0.0.3", "X"); },
                    ThrowsMessage<vessa::Exception>(StartsWith(c.expected)));
    }
}

TEST(SshTransport, ConfigurationFileAndSocketDirectory) {
    vessa::test::TempDir dir;
    SshTransport::Options o;
    o.controlDirectory = "/ctl";
    SshTransport t(o, nullptr);
    auto configOf = [&t]() {
        const std::list<std::string> a = t.sshArguments("h", "true", true);
        return a.front() == "-F" ? *std::next(a.begin()) : std::string();
    };
    const char* saved = std::getenv("VESSA_SSH_CONFIG");
    ::unsetenv("VESSA_SSH_CONFIG");
    EXPECT_EQ(configOf(), "");
    ::setenv("VESSA_SSH_CONFIG", "/from/env", 1);
    EXPECT_EQ(configOf(), "/from/env");
    vessa::hax::setSshConfig("/from/call");
    EXPECT_EQ(configOf(), "/from/call");
    // Programs that the view runs find the same file.
    EXPECT_EQ(vessa::sal::sys::commandEnvironment().vars["VESSA_SSH_CONFIG"], "/from/call");
    vessa::hax::setSshConfig("");
    saved != nullptr ? ::setenv("VESSA_SSH_CONFIG", saved, 1) : ::unsetenv("VESSA_SSH_CONFIG");

    // The socket directory is private, or not used at all.
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    const std::string keep = runtime != nullptr ? runtime : "", sockets = dir.path() + "/vessa-ssh";
    ::setenv("XDG_RUNTIME_DIR", dir.path().c_str(), 1);
    EXPECT_EQ(vessa::hax::controlDirectory(), sockets);
    struct stat st;
    ASSERT_EQ(::stat(sockets.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ::chmod(sockets.c_str(), 0755);
    EXPECT_EQ(vessa::hax::controlDirectory(), "");
    const std::list<std::string> a =
        SshTransport(SshTransport::Options(), nullptr).sshArguments("h", "true", true);
    EXPECT_NE(std::find(a.begin(), a.end(), "ControlMaster=no"), a.end());
    keep.empty() ? ::unsetenv("XDG_RUNTIME_DIR") : ::setenv("XDG_RUNTIME_DIR", keep.c_str(), 1);
}

// Processes that the agent's host starts run there, are listed while they run (and only they), and
// are ended for real.
TEST(SshTransport, AgentHostRunsRemoteProcessesThroughTheTransport) {
    vessa::hax::clearHostCache();
    const auto t = std::make_shared<SshTransport>(loopback());
    vessa::hax::setTransport(t);
    vessa::hax::Host remote = vessa::hax::Host::named("127.0.0.9", false);
    ASSERT_FALSE(remote.isLocal());
    const std::vector<int> pids = {remote.launch("sleep", {"30"}).pid(),
                                   remote.launch("sleep", {"31"}).pid()};
    std::list<vessa::hax::Process> running;
    EXPECT_EQ(remote.fill(running), 2);
    EXPECT_EQ(t->runningProcesses("127.0.0.9", {pids[0], 999999, pids[1]}), pids);
    remote.killAllProcesses();
    for (int i = 0; i < 200 && !t->runningProcesses("127.0.0.9", pids).empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(t->runningProcesses("127.0.0.9", pids).empty());
    running.clear();
    EXPECT_EQ(remote.fill(running), 0);
    EXPECT_THROW(remote.launch("no-such-program-here", {}), vessa::Exception);
    vessa::hax::setTransport(nullptr);
    vessa::hax::clearHostCache();
}

}  // namespace
