// Ending a program by signal without leaving its children behind.
//
// The programs of this package start their tools, launchers and ssh in process groups of their own
// (so that a tool that hangs can be ended with everything it started). A signal sent to the program
// alone (SIGTERM from a supervisor, SIGHUP when the terminal goes, SIGINT when only its own group was
// hit) would leave those groups running. endGroupsOnSignals() makes SIGINT, SIGTERM and SIGHUP end them.
//
// The table of groups is lock-free, so that the signal handler may walk it; runBounded() enters each
// child's group for as long as the child runs.
#pragma once

#include <sys/types.h>

#include <functional>

namespace vessa::sal::exec {

// Enters `group` in the table of groups a signal ends; forgetGroup() takes it out. A full table
// (thousands of children at once) leaves the group out: it is then ended only by its own limits.
void rememberGroup(pid_t group);
void forgetGroup(pid_t group);

// From now on, SIGINT, SIGTERM and SIGHUP: send SIGTERM to every group in the table at once, run
// `beforeExit` on a thread of its own (e.g. end shared connections; it should not take long), give the
// groups `graceMilliseconds` to go, kill what remains, and exit with 128 + the signal number (130, 143,
// 129) without running exit handlers or flushing output. A second signal meanwhile kills the groups
// and exits at once. Call once, early in main, before any thread starts. When no thread can be made
// (a process limit), nothing changes: the signals keep their default action.
void endGroupsOnSignals(std::function<void()> beforeExit, unsigned int graceMilliseconds = 1000);

// True once such a signal arrived: the program is ending and must not go on to print results.
bool ending();
// Returns only when no signal is being handled; otherwise waits for the exit that is under way.
void holdIfEnding();

}  // namespace vessa::sal::exec
