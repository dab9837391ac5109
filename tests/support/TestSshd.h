// A throw-away sshd for the remote tests: its own host key and authorized key, listening on one port
// of the given loopback addresses, in a PID namespace of its own, with the companions of this build
// on the sessions' PATH. Root only (sshd must become the user it logs in); stopped and removed when
// the object goes, also when the test fails.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "platform/Process.h"
#include "support/TestSupport.h"

namespace vessa::test {

struct SshAnswer {
    int status = -1;
    std::string out, err;
};

struct TestSshd {
    // `addresses`: where it listens, the first one picking the port; `configured`: further hosts the
    // client configuration names (with the same port, key and known host key); `sessionEnv`: further
    // "NAME=VALUE" words for the sessions' environment. A directory "install" of dir() is the sessions'
    // VESSA_VLTT_INSTALL_DIR, and `sessionPath` goes in front of the sessions' PATH.
    TestSshd(const std::vector<std::string>& addresses, const std::vector<std::string>& configured = {},
             const std::string& sessionEnv = "", const std::string& sessionPath = "");
    ~TestSshd();
    TestSshd(const TestSshd&) = delete;
    TestSshd& operator=(const TestSshd&) = delete;

    // A program of this build with the companions on PATH and the sockets in the test's directory;
    // `withConfig` names the SSH configuration in VESSA_SSH_CONFIG (else only --ssh-config may).
    SshAnswer run(const std::string& program, const std::list<std::string>& args, bool withConfig = false,
                  unsigned int timeoutSeconds = 60);

    TempDir dir;
    int port = 0;
    std::string config;  // the client's SSH configuration file
    sal::exec::Process daemon;
    bool ready = false;
};

// Whether this machine can run the remote tests (root, sshd and ssh).
bool canRunSshd();

}  // namespace vessa::test
