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

// Forwarding is off whatever the configuration says; the socket's name carries the configuration's key.
const std::list<std::string> kOptions = {
    "-F", "/etc/vessa/ssh_config",
    "-o", "ControlPath=/ctl/" + vessa::hax::controlKey("/etc/vessa/ssh_config") + "-%C",
    "-o", "BatchMode=yes",
    "-o", "ConnectTimeout=7",
    "-o", "ServerAliveInterval=15",
    "-o", "ServerAliveCountMax=3",
    "-o", "ForwardAgent=no",
    "-o", "ForwardX11=no",
    "-o", "ControlMaster=auto",
    "-o", "ControlPersist=60",
    "-T"};

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
        // Only a file being put is standard input, and a run keeps an open one, whose end tells the
        // host that the session is over.
        if (streams.inputFile.empty() && args.back().find("vessa: started") == std::string::npos) {
            expected.push_back("-n");
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

    // A run reports the status, in its working directory (made for it when asked), and names a directory
    // it cannot enter. (Its streams, and a program that is not there, are Remote's runs through pelo.)
    // Both streams go to `out`: the line that tells the run has started is not passed on.
    exec::RunLimits limits;
    std::string out;
    auto toOut = [&out](const char* d, std::size_t n) { out.append(d, n); };
    const std::string work = dir.path() + "/new dir/it's";
    EXPECT_EQ(t.run(address, work, true, "sh", {"-c", "pwd; exit 7"}, toOut, toOut, limits), 7);
    EXPECT_EQ(out, work + "\n");
    EXPECT_THAT(
        [&] { t.run(address, dir.path() + "/missing", false, "true", {}, toOut, toOut, limits); },
        ThrowsMessage<vessa::Exception>(AllOf(HasSubstr("on 127.0.0.9: "), HasSubstr("can't cd to"))));
}

TEST(SshTransport, FailuresNameTheHostAndSshsReason) {
    const struct {
        exec::RunResult::Outcome outcome;
        int status;
        std::string stderrText, expected;
    } cases[] = {
        // ssh could not even start here (status -1: the runner throws): nothing was tried on the host.
        {exec::RunResult::Exited, -1, "Too many open files",
         "cannot run ssh on this machine for reading the environment value X on 127.0.0.3: Too many open"},
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
            if (c.status < 0) {
                throw vessa::Exception(c.stderrText);
            }
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
    EXPECT_NE(vessa::hax::controlDirectory(), sockets);
    ::chmod(sockets.c_str(), 0700);

    // Every directory above the sockets must be this user's or root's, and nobody else's to change
    // (a root-owned sticky one like /tmp excepted); otherwise the directory in /tmp is used instead.
    const std::string fallback = "/tmp/vessa-ssh-" + std::to_string(::geteuid());
    const struct {
        mode_t mode;
        uid_t owner;
        bool trusted;
    } parents[] = {{0755, ::geteuid(), true}, {0775, ::geteuid(), false}, {0757, ::geteuid(), false},
                   {01777, 0, true},          {01777, 65534, false},      {0755, 65534, false}};
    for (const auto& p : parents) {
        if (p.owner != ::geteuid() && ::geteuid() != 0) {
            continue;  // only root can give a directory away
        }
        vessa::test::TempDir top;
        const std::string parent = top.path() + "/p";
        ASSERT_EQ(::mkdir(parent.c_str(), 0700), 0);
        ASSERT_EQ(::mkdir((parent + "/vessa-ssh").c_str(), 0700), 0);
        ASSERT_EQ(::chown(parent.c_str(), p.owner, static_cast<gid_t>(-1)), 0);
        ASSERT_EQ(::chmod(parent.c_str(), p.mode), 0);
        ::setenv("XDG_RUNTIME_DIR", parent.c_str(), 1);
        const std::string chosen = vessa::hax::controlDirectory();
        EXPECT_EQ(chosen == parent + "/vessa-ssh", p.trusted) << std::oct << p.mode << " " << p.owner;
        if (!p.trusted) {
            EXPECT_TRUE(chosen == fallback || chosen.empty()) << chosen;
        }
        ::chown(parent.c_str(), ::geteuid(), static_cast<gid_t>(-1));
        ::chmod(parent.c_str(), 0700);
    }
    keep.empty() ? ::unsetenv("XDG_RUNTIME_DIR") : ::setenv("XDG_RUNTIME_DIR", keep.c_str(), 1);
}

// A connection made under one configuration is never shared with another, nor with another run.
TEST(SshTransport, ConnectionsAreKeyedByConfigurationAndRun) {
    vessa::test::TempDir dir;
    const std::string a = dir.write("a", "Host *\n  StrictHostKeyChecking no\n");
    const std::string b = dir.write("b", "Host *\n  StrictHostKeyChecking yes\n");
    const std::string key = vessa::hax::controlKey(a);
    EXPECT_EQ(vessa::hax::controlKey(a), key);
    EXPECT_NE(vessa::hax::controlKey(b), key);
    dir.write("a", "Host *\n  StrictHostKeyChecking yes\n");  // the same file, now strict
    EXPECT_NE(vessa::hax::controlKey(a), key);
    const char* saved = std::getenv("VESSA_SSH_RUN");
    ::setenv("VESSA_SSH_RUN", "another run", 1);
    const std::string other = vessa::hax::controlKey(a);
    saved != nullptr ? ::setenv("VESSA_SSH_RUN", saved, 1) : ::unsetenv("VESSA_SSH_RUN");
    EXPECT_NE(vessa::hax::controlKey(a), other);

    // The run's connections end with it: one "ssh -O exit" for each host, on the same socket.
    std::vector<std::list<std::string>> calls;
    SshTransport::Options o;
    o.configFile = a;
    o.controlDirectory = "/ctl";
    SshTransport t(o, [&calls](const std::string&, const std::list<std::string>& args,
                               const exec::RunStreams&, const exec::RunLimits&) {
        calls.push_back(args);
        return exec::RunResult();
    });
    t.endConnections({"h1", "h2"});
    ASSERT_EQ(calls.size(), 2u);
    const std::string path = "ControlPath=/ctl/" + vessa::hax::controlKey(a) + "-%C";
    EXPECT_THAT(calls[1], ElementsAre("-F", a, "-o", path, "-o", "BatchMode=yes", "-O", "exit", "--", "h2"));
    const std::list<std::string> call = t.sshArguments("h2", "true", true);
    EXPECT_NE(std::find(call.begin(), call.end(), path), call.end());
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
