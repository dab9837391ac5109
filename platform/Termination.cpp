#include "platform/Termination.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

namespace vessa::sal::exec {

namespace {

constexpr int kSlots = 8192;
std::atomic<pid_t> g_groups[kSlots];
std::atomic<int> g_signal{0};
int g_wake[2] = {-1, -1};
std::function<void()> g_beforeExit;
unsigned int g_graceMilliseconds = 1000;

void signalAll(int signal) {
    for (auto& slot : g_groups) {
        const pid_t group = slot.load();
        if (group > 0) {
            ::kill(-group, signal);
        }
    }
}

bool anyLeft() {
    for (auto& slot : g_groups) {
        const pid_t group = slot.load();
        if (group > 0 && ::kill(-group, 0) == 0) {
            return true;
        }
    }
    return false;
}

// Async-signal-safe: atomics, kill, write and _exit only.
void onSignal(int signal) {
    int none = 0;
    if (!g_signal.compare_exchange_strong(none, signal)) {
        signalAll(SIGKILL);
        ::_exit(128 + none);
    }
    signalAll(SIGTERM);
    const char wake = 1;
    const ssize_t ignored = ::write(g_wake[1], &wake, 1);
    (void)ignored;
}

void finish() {
    char wake = 0;
    while (::read(g_wake[0], &wake, 1) < 0 && errno == EINTR) {
    }
    if (g_beforeExit) {
        try {
            g_beforeExit();
        } catch (...) {
            // Nothing more can be done about it now; the exit goes on.
        }
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(g_graceMilliseconds);
    while (anyLeft() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    signalAll(SIGKILL);
    ::_exit(128 + g_signal.load());
}

}  // namespace

void rememberGroup(pid_t group) {
    for (auto& slot : g_groups) {
        pid_t empty = 0;
        if (slot.compare_exchange_strong(empty, group)) {
            return;
        }
    }
}

void forgetGroup(pid_t group) {
    for (auto& slot : g_groups) {
        pid_t expected = group;
        if (slot.compare_exchange_strong(expected, 0)) {
            return;
        }
    }
}

void endGroupsOnSignals(std::function<void()> beforeExit, unsigned int graceMilliseconds) {
    if (g_wake[0] >= 0 || ::pipe2(g_wake, O_CLOEXEC) != 0) {
        return;
    }
    g_beforeExit = std::move(beforeExit);
    g_graceMilliseconds = graceMilliseconds;
    try {
        std::thread(finish).detach();
    } catch (const std::system_error&) {
        // No thread can be made now (a process limit): the program runs on, and a signal keeps its
        // default action rather than wait for a watcher that does not exist.
        ::close(g_wake[0]);
        ::close(g_wake[1]);
        g_wake[0] = g_wake[1] = -1;
        return;
    }
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}

bool ending() {
    return g_signal.load() != 0;
}

void holdIfEnding() {
    while (ending()) {
        ::pause();
    }
}

}  // namespace vessa::sal::exec
