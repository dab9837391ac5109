// One discovery run's window on the system view.
//
// While a RunScope lives, sys::current() on the thread that made it answers through the scope:
// - every directory is listed once; later listings of it, and name look-ups in it (entryTypes), are
//   answered from memory. On a host with thousands of devices the readers ask about the same few
//   directories (/sys/block, /dev, /dev/mapper) once per device, and listing them again each time made
//   a run quadratic. The machine is taken not to change during one run.
// - what became of every program run through the view, and which of the files the run watches could
//   not be read, is written down, so that the run can tell afterwards what it could not see.
// Everything else goes to the view that was current when the scope began, which must not be replaced
// while the scope lives. Scopes nest; each thread has its own. A scope is not shared between threads.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/view/SystemView.h"

namespace vessa::sal::sys {

class RunScope {
  public:
    struct Command {
        std::string program;
        std::list<std::string> args;
        RunOutcome outcome = RunOutcome::Exited;
        int status = 0;               // when outcome is Exited
        std::size_t outputBytes = 0;  // what the program wrote to its standard output
    };

    // `watched`: the files whose failure to read the run wants to know (unreadable()). Only those: on a
    // host with tens of thousands of devices the attributes a device does not have (a serial number, a
    // WWID) are hundreds of thousands of reads that fail as they should.
    explicit RunScope(std::vector<std::string> watched = {});
    ~RunScope();
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;

    // Every program run through the view in this scope, in order.
    const std::vector<Command>& commands() const;
    // A source that a reader could not read to its end, noted by the reader where it keeps the failure
    // to itself; nothing happens on a thread outside any scope.
    static void noteFailure(const std::string& source, const std::string& reason);
    const std::vector<std::pair<std::string, std::string>>& failures() const { return failures_; }

    // Host paths of the watched files that could not be read in this scope, in order, each once.
    const std::vector<std::string>& unreadable() const;
    bool wasUnreadable(const std::string& path) const;

    // Something a run is about to ask of the view below a directory: a file's content, a directory's
    // listing, or a directory's listing and the target of every link in it (read with the view's
    // default length bound); `path` is the rest of the path after the directory's ("" for itself).
    struct Ahead {
        enum Kind { File, Directory, Links } kind;
        std::string path;
    };
    // Starts reading the items `within` below each of `bases` (absolute paths without a final "/"),
    // in that order, on a second thread, when the current thread's scope reads through a view that
    // allows it (a snapshot's); the scope then answers those reads from memory. The answers are the
    // ones the view gives on this thread: a file that cannot be read is still reported unreadable,
    // and an item asked for before the second thread reached it is read here as before. On a host
    // with thousands of devices most of a run's time goes to reading small files one after another;
    // this way the reading and the run's own work share the processors. Nothing happens outside a
    // scope or for other views. The reading threads end, at the latest, with the scope.
    static void readAhead(std::vector<std::string> bases, std::vector<Ahead> within);
    // Tells the current thread's scope that the run has read its sources: the reading threads end, and
    // what was read ahead but not asked for and the directory listings kept so far are freed. On a
    // host with tens of thousands of devices they hold a sixth of the run's memory while the run goes
    // on to make its items; a later request is answered as it would be on first asking.
    static void endReading();

    // Starts `commands` at once, each on a thread of its own, when the current thread's scope runs
    // them through a view that allows it (the live machine's); a later run of the same command line
    // in this scope takes its result, so that what the run records and logs is what running the
    // commands one after another gives, in the order the run asks. Each is bounded by the command
    // limits as always. On a host with thousands of devices the volume tools each take a while to
    // read every device's label; one after another they made the largest part of a run.
    using CommandLine = std::pair<std::string, std::list<std::string>>;
    static void runAhead(const std::vector<CommandLine>& commands);
    // What the run will ask of devices (see View::probeAhead), told to the view ahead.
    static void probeAhead(const std::vector<DeviceProbes>& plan, unsigned int inquiryTimeout);
    // Devices the run must send nothing (a path whose transport does not run): each probe of them,
    // here and ahead, is answered at once as failed, without touching the device.
    static void leaveAlone(const std::vector<std::string>& kernelNames);
    // The devices that did not answer a probe in time, in words (View::takeProbeWarnings).
    std::vector<std::string> probeWarnings();

    class CachingView;

  private:
    std::unique_ptr<CachingView> view_;
    View* previous_;
    RunScope* previousScope_;
    std::vector<std::pair<std::string, std::string>> failures_;
};

}  // namespace vessa::sal::sys
