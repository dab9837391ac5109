// A signal that ends a program of this package ends what it started: every process group of its
// children, with the status a shell expects (128 + the signal).
#include "platform/Termination.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <thread>

#include "platform/Process.h"
#include "support/TestSupport.h"

namespace exec = vessa::sal::exec;

namespace {

const std::string kBin = VESSA_BINARY_DIR;

bool gone(pid_t group) {
    for (int i = 0; i < 300; ++i) {
        if (::kill(-group, 0) != 0 && errno == ESRCH) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// An "ssh" that hangs with a child of its own, as a session to a host that never answers would; it
// tells its process id (its group's) in ssh.pid. Asked to end a shared connection, it just ends.
TEST(Termination, SignalsEndEveryChildGroupWithTheConventionalStatus) {
    const struct {
        std::string program;
        std::list<std::string> args;
        int signal;
        int status;
    } cases[] = {
        {kBin + "/companions/pelo", {"--host", "127.0.0.2", "--exec", "korvo"}, SIGTERM, 143},
        {kBin + "/cli/vessa-storage", {"list", "--host", "127.0.0.2"}, SIGINT, 130},
        {kBin + "/cli/vessa-storage", {"list", "--host", "127.0.0.2"}, SIGHUP, 129},
    };
    for (const auto& c : cases) {
        vessa::test::TempDir dir;
        const std::string pidFile = dir.path() + "/ssh.pid";
        const std::string ssh =
            dir.write("bin/ssh",
                      "#!/bin/sh\ncase \" $* \" in *\" -O \"*) exit 0;; esac\n"
                      "echo $$ > " +
                          pidFile + ".new\nmv " + pidFile + ".new " + pidFile + "\nsleep 30 &\nwait\n");
        ASSERT_EQ(::chmod(ssh.c_str(), 0755), 0);
        exec::LaunchProperty launch;
        exec::EnvVars env = exec::Process::envVars();
        env.vars["PATH"] = dir.path() + "/bin:" + kBin + "/companions:" + env.vars["PATH"];
        env.vars["XDG_RUNTIME_DIR"] = dir.path();
        launch.set(env)
            .setStdin(exec::LaunchProperty::Stream::Null)
            .setStdout(exec::LaunchProperty::Stream::Null)
            .setStderr(exec::LaunchProperty::Stream::Null);
        exec::Process p = exec::Process::create(c.program, c.args, launch);
        for (int i = 0; i < 500 && ::access(pidFile.c_str(), F_OK) != 0; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        pid_t group = 0;
        std::ifstream(pidFile) >> group;
        ASSERT_GT(group, 0) << c.program;
        const auto start = std::chrono::steady_clock::now();
        ::kill(p.pid(), c.signal);
        int status = -1;
        if (!p.waitFor(5000, status)) {
            ::kill(p.pid(), SIGKILL);
            p.wait();
        }
        EXPECT_EQ(status, c.status) << c.program;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3)) << c.program;
        EXPECT_TRUE(gone(group)) << c.program << " left its ssh running";
        ::kill(-group, SIGKILL);
    }
}

}  // namespace
