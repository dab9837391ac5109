#include "platform/hax/SshTransport.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <thread>

#include "platform/Exception.h"
#include "platform/view/SystemView.h"
#include "support/TestSupport.h"

using vessa::hax::SshTransport;
namespace exec = vessa::sal::exec;

namespace {

// Names a remote host may be handed: every one must reach the remote program as it is.
const std::vector<std::string> kHostile = {"plain",      "with blank", "it's",      "'",  "''\\'",
                                           "$(touch x)", "`id`",       "a;b|c&d",   "*",  "-n",
                                           "",           "~root",      "line\nend", "\\", "\"q\" $HOME"};

// Stands in for ssh: checks the options every call carries, then hands the remote command line to a
// local shell, as the remote login shell would get it.
struct Loopback {
    std::vector<std::list<std::string>> calls;
    std::vector<std::string> inputs;

    SshTransport transport(const std::string& config = "/etc/vessa/ssh_config") {
        SshTransport::Options o;
        o.connectTimeout = 7;
        o.configFile = config;
        o.controlDirectory = "/ctl";
        return SshTransport(o, [this](const std::string& program, const std::list<std::string>& args,
                                      const exec::RunStreams& streams, const exec::RunLimits& limits) {
            EXPECT_EQ(program, "ssh");
            calls.push_back(args);
            inputs.push_back(streams.inputFile);
            // A host where the tools are installed and the session sets no install directory.
            exec::RunStreams local = streams;
            local.env.vars.erase("VESSA_VLTT_INSTALL_DIR");
            local.env.vars["PATH"] = std::string(VESSA_BINARY_DIR) + "/companions:" + local.env.vars["PATH"];
            return exec::runBounded("/bin/sh", {"-c", args.back()}, local, limits);
        });
    }
};

const std::list<std::string> kOptions = {
    "-F", "/etc/vessa/ssh_config",  "-o", "BatchMode=yes",         "-o", "ConnectTimeout=7",
    "-o", "ServerAliveInterval=15", "-o", "ServerAliveCountMax=3", "-o", "ControlMaster=auto",
    "-o", "ControlPath=/ctl/%C",    "-o", "ControlPersist=60",     "-T"};

TEST(SshTransport, QuotingCarriesHostileWordsIntact) {
    EXPECT_EQ(vessa::hax::shellQuote("it's"), "'it'\\''s'");
    EXPECT_THROW(vessa::hax::shellQuote(std::string("a\0b", 3)), vessa::Exception);
    std::list<std::string> words(kHostile.begin(), kHostile.end());
    std::string out;
    exec::runCaptured("/bin/sh", {"-c", vessa::hax::remoteCommandLine("printf '%s\\0' \"$@\"", words)}, out);
    std::string expected;
    for (const std::string& w : kHostile) {
        expected += w + '\0';
    }
    EXPECT_EQ(out, expected);
}

TEST(SshTransport, EveryCallCarriesTheOptionsAndDoesWhatItSays) {
    vessa::test::TempDir dir;
    Loopback ssh;
    SshTransport t = ssh.transport();
    const std::string address = "127.0.0.9";

    EXPECT_EQ(t.envValueOf(address, "HOME"), std::getenv("HOME"));
    EXPECT_EQ(t.envValueOf(address, "VESSA_SURELY_UNSET_VARIABLE"), "");
    EXPECT_EQ(t.envValueOf(address, "VESSA_VLTT_INSTALL_DIR"), std::string(VESSA_BINARY_DIR) + "/companions");
    // Every file operation, on a hostile name each.
    const std::string src = dir.write("source", std::string("bytes\0and\nmore", 14));
    for (const std::string& name : kHostile) {
        if (name.empty() || name == "-n" || name.find('\\') != std::string::npos) {
            continue;  // an empty name is the directory itself; "-n" and "\" are tried by the shell above
        }
        const std::string remote = dir.path() + "/r " + name;
        t.putFSItem(address, src, remote);
        std::list<vessa::hax::FSItem> items;
        t.listDirectory(address, dir.path(), items);
        int found = 0;
        for (const auto& i : items) {
            found += i.name() == "r " + name && i.type() == vessa::hax::FSItem::file;
        }
        EXPECT_EQ(found, 1) << name;
        t.getFSItem(address, remote, dir.path() + "/back");
        EXPECT_EQ(vessa::test::readFile(dir.path() + "/back"), std::string("bytes\0and\nmore", 14)) << name;
        t.deleteFSItem(address, remote);
    }
    std::list<vessa::hax::FSItem> items;
    EXPECT_EQ(t.listDirectory(address, dir.path(), items), 2);  // source and back, in name order
    EXPECT_EQ(items.front().name(), "back");

    // A process started, seen running, ended.
    const int pid = t.startProcess(address, "sleep", {"30"});
    EXPECT_EQ(t.runningProcesses(address, {pid, 999999}), std::vector<int>{pid});
    t.signalProcesses(address, {pid}, SIGKILL);
    for (int i = 0; i < 200 && !t.runningProcesses(address, {pid}).empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(t.runningProcesses(address, {pid}).empty());

    for (std::size_t i = 0; i < ssh.calls.size(); ++i) {
        const std::list<std::string>& argv = ssh.calls[i];
        std::list<std::string> head(argv.begin(), std::next(argv.begin(), kOptions.size()));
        EXPECT_EQ(head, kOptions);
        const bool put = !ssh.inputs[i].empty();
        auto rest = std::next(argv.begin(), kOptions.size());
        if (!put) {
            EXPECT_EQ(*rest++, "-n");
        }
        EXPECT_EQ(std::list<std::string>(rest, argv.end()).size(), 3u);
        EXPECT_EQ(*rest++, "--");
        EXPECT_EQ(*rest++, address);
        EXPECT_EQ(rest->compare(0, 6, "sh -c "), 0);
    }
}

TEST(SshTransport, RunReportsStatusPassesStreamsAndNamesWhatCouldNotRun) {
    vessa::test::TempDir dir;
    Loopback ssh;
    SshTransport t = ssh.transport();
    exec::RunLimits limits;
    std::string out, err;
    auto toOut = [&out](const char* d, std::size_t n) { out.append(d, n); };
    auto toErr = [&err](const char* d, std::size_t n) { err.append(d, n); };
    const std::string work = dir.path() + "/new dir/it's";
    EXPECT_EQ(
        t.run("127.0.0.9", work, true, "sh", {"-c", "pwd; echo oops >&2; exit 7"}, toOut, toErr, limits), 7);
    EXPECT_EQ(out, work + "\n");
    EXPECT_EQ(err, "oops\n");  // the start line is not passed on
    const struct {
        std::string workdir;
        bool create;
        std::string program;
        std::string reason;
    } failures[] = {{dir.path() + "/missing", false, "true", "can't cd to"},
                    {"", false, "no-such-program-here", "no-such-program-here: not found"}};
    for (const auto& f : failures) {
        try {
            t.run("127.0.0.9", f.workdir, f.create, f.program, {}, toOut, toErr, limits);
            ADD_FAILURE() << f.program;
        } catch (const vessa::Exception& e) {
            EXPECT_NE(e.why().find("on 127.0.0.9: "), std::string::npos) << e.why();
            EXPECT_NE(e.why().find(f.reason), std::string::npos) << e.why();
        }
    }
}

TEST(SshTransport, FailuresNameTheHostAndSshsReason) {
    const struct {
        exec::RunResult::Outcome outcome;
        int status;
        std::string stderrText;
        std::string expected;
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
        try {
            t.envValueOf("127.0.0.3", "X");
            ADD_FAILURE() << c.expected;
        } catch (const vessa::Exception& e) {
            EXPECT_EQ(e.why().compare(0, c.expected.size(), c.expected), 0) << e.why();
        }
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
    const std::string keep = runtime != nullptr ? runtime : "";
    ::setenv("XDG_RUNTIME_DIR", dir.path().c_str(), 1);
    EXPECT_EQ(vessa::hax::controlDirectory(), dir.path() + "/vessa-ssh");
    struct stat st;
    ASSERT_EQ(::stat((dir.path() + "/vessa-ssh").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ::chmod((dir.path() + "/vessa-ssh").c_str(), 0755);
    EXPECT_EQ(vessa::hax::controlDirectory(), "");
    SshTransport shared(SshTransport::Options(), nullptr);
    const std::list<std::string> a = shared.sshArguments("h", "true", true);
    EXPECT_NE(std::find(a.begin(), a.end(), "ControlMaster=no"), a.end());
    keep.empty() ? ::unsetenv("XDG_RUNTIME_DIR") : ::setenv("XDG_RUNTIME_DIR", keep.c_str(), 1);
}

TEST(SshTransport, AgentHostRunsRemoteProcessesThroughTheTransport) {
    vessa::hax::clearHostCache();
    Loopback ssh;
    vessa::hax::setTransport(std::make_shared<SshTransport>(ssh.transport()));
    vessa::hax::Host remote = vessa::hax::Host::named("127.0.0.9", false);
    ASSERT_FALSE(remote.isLocal());
    remote.launch("sleep", {"30"});
    remote.launch("sleep", {"31"});
    std::list<vessa::hax::Process> running;
    EXPECT_EQ(remote.fill(running), 2);
    remote.killAllProcesses();
    running.clear();
    EXPECT_EQ(remote.fill(running), 0);
    EXPECT_THROW(remote.launch("no-such-program-here", {}), vessa::Exception);
    vessa::hax::setTransport(nullptr);
    vessa::hax::clearHostCache();
}

}  // namespace
