#include "platform/Log.h"

#include <mutex>

namespace vessa::log {

namespace detail {
std::atomic<bool> g_enabled{false};
}

namespace {

// The log stream and the mutex that serialises every line written to it. These two, and the system
// view, are the only process-wide state of the library.
std::mutex& logMutex() {
    static std::mutex m;
    return m;
}
std::ostream* g_stream = nullptr;
thread_local std::string* t_held = nullptr;  // the lines of this thread's HeldLines, if one lives

}  // namespace

void setStream(std::ostream* stream) {
    std::lock_guard<std::mutex> lock(logMutex());
    g_stream = stream;
    detail::g_enabled.store(stream != nullptr, std::memory_order_relaxed);
}

std::ostream* stream() {
    std::lock_guard<std::mutex> lock(logMutex());
    return g_stream;
}

void write(const char* unit, const char* trace, const std::string& text) {
    if (t_held != nullptr) {
        if (enabled()) {  // held or not, nothing is formatted while logging is off
            *t_held += '[' + std::string(unit) + "] " + trace + ": " + text + '\n';
        }
        return;
    }
    std::lock_guard<std::mutex> lock(logMutex());
    if (g_stream == nullptr) {
        return;
    }
    *g_stream << '[' << unit << "] " << trace << ": " << text << '\n';
}

void writeLines(const std::string& lines) {
    if (lines.empty()) {
        return;
    }
    std::lock_guard<std::mutex> lock(logMutex());
    if (g_stream != nullptr) {
        *g_stream << lines;
    }
}

HeldLines::HeldLines() {
    t_held = &lines_;
}

HeldLines::~HeldLines() {
    t_held = nullptr;
    writeLines(lines_);
}

std::string HeldLines::take() {
    std::string lines;
    lines.swap(lines_);
    return lines;
}

void flush() {
    std::lock_guard<std::mutex> lock(logMutex());
    if (g_stream != nullptr) {
        g_stream->flush();
    }
}

Trace::Trace(const char* unit, const char* name) : unit_(unit), name_(name) {
    if (enabled()) {
        write(unit_, name_, "Enter");
    }
}

Trace::~Trace() {
    if (enabled()) {
        write(unit_, name_, "Exit");
    }
}

}  // namespace vessa::log
