// The library's log: one stream for the whole process (set by Host::setLoggingStream), one mutex, one
// line at a time. Every line carries the source unit and the trace name of the code that wrote it:
//
//     [lin/ProcPartition.cpp] readProcPartitions: Got procPart: sda (8:0) blocks=976762584
//
// With no stream set nothing is formatted: VESSA_LOG tests one atomic flag before it evaluates any of
// its operands, so logging that is off costs one load and a branch.
//
// Usage inside a function:
//     VESSA_TRACE("Storage.cpp", "Storage::print");   // writes ": Enter" now and ": Exit" on return
//     VESSA_LOG << "Name: " << name;                  // one line, prefixed with that unit and trace
// Where a function has no trace of its own, VESSA_LOG_AT(unit, trace) names them explicitly.
#pragma once

#include <atomic>
#include <ostream>
#include <sstream>
#include <string>

namespace vessa::log {

// Makes `stream` the log (nullptr: logging off). The caller keeps the stream alive while it is set.
void setStream(std::ostream* stream);
std::ostream* stream();

namespace detail {
extern std::atomic<bool> g_enabled;
}

inline bool enabled() noexcept {
    return detail::g_enabled.load(std::memory_order_relaxed);
}

// Writes one whole line ("[unit] trace: text") under the log mutex. Does nothing when logging is off.
// Lines are not flushed one by one (a run writes hundreds of thousands on a large host): the stream's
// own buffering applies, and a discovery run flushes once at its end. A caller that wants each line at
// once hands over a stream that flushes itself (std::unitbuf).
void write(const char* unit, const char* trace, const std::string& text);
// Flushes the log stream, if one is set.
void flush();

// While one lives, the lines this thread writes are kept in it instead of going to the log; take()
// hands them over, to be written later with writeLines() where they belong. Work shared out to a
// second thread thus logs in the order the same work on one thread gives. Lines not taken are written
// when it ends. One at a time on a thread.
class HeldLines {
  public:
    HeldLines();
    ~HeldLines();
    HeldLines(const HeldLines&) = delete;
    HeldLines& operator=(const HeldLines&) = delete;
    std::string take();

  private:
    std::string lines_;
};
// Writes lines as take() gave them, in one piece under the log mutex.
void writeLines(const std::string& lines);

// Enter/exit guard of one traced function. The unit and trace texts must outlive the guard (they are
// string literals in practice).
class Trace {
  public:
    Trace(const char* unit, const char* name);
    ~Trace();
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;

    const char* unit() const noexcept { return unit_; }
    const char* name() const noexcept { return name_; }

  private:
    const char* unit_;
    const char* name_;
};

// Collects one line and writes it when the statement ends.
class Line {
  public:
    Line(const char* unit, const char* trace) : unit_(unit), trace_(trace) {}
    ~Line() { write(unit_, trace_, text_.str()); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    template <class T>
    Line& operator<<(const T& value) {
        text_ << value;
        return *this;
    }

  private:
    const char* unit_;
    const char* trace_;
    std::ostringstream text_;
};

}  // namespace vessa::log

#define VESSA_TRACE(unit, name) const ::vessa::log::Trace vessa_trace_((unit), (name))
#define VESSA_LOG_AT(unit, trace)   \
    if (!::vessa::log::enabled()) { \
    } else                          \
        ::vessa::log::Line((unit), (trace))
#define VESSA_LOG VESSA_LOG_AT(vessa_trace_.unit(), vessa_trace_.name())
