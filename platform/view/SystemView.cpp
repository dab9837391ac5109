#include "platform/view/SystemView.h"

#include <algorithm>
#include <map>
#include <mutex>

#include "platform/Str.h"

namespace vessa::sal::sys {

View::~View() = default;

bool View::entryTypes(const std::string& directory, const std::string& loweredName,
                      std::vector<DirEntry::Type>& types) {
    std::vector<DirEntry> entries;
    if (!listDirectory(directory, entries)) {
        return false;
    }
    for (const DirEntry& e : entries) {
        if (util::str::toLower(e.name) == loweredName) {
            types.push_back(e.type);
        }
    }
    return true;
}

RunOutcome View::describeContent(const std::string& path, std::string& output, int& status) {
    return run("file", {"-s", path}, output, status);
}

SignatureProbe View::readSignatures(const std::string& /*device*/) {
    return {};
}

SignatureProbe View::readSignaturesWithContent(const std::string& device, const std::string& contentPath,
                                               RunOutcome& outcome, std::string& output, int& status) {
    SignatureProbe signatures = readSignatures(device);
    outcome = describeContent(contentPath, output, status);
    return signatures;
}

void View::probeAhead(const std::vector<DeviceProbes>& /*plan*/, unsigned int /*inquiryTimeout*/) {}

namespace detail {
thread_local View* t_scopeView = nullptr;
}

namespace {

// The view and the lock that guards swapping it. Discovery holds a reference for the length of one
// call only, so a view is replaced between runs, never during one.
std::mutex& viewMutex() {
    static std::mutex m;
    return m;
}

std::unique_ptr<View>& slot() {
    static std::unique_ptr<View> view;
    return view;
}

std::string escapeForFileName(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (c == '%') {
            out += "%25";
        } else if (c == '/') {
            out += "%2F";
        } else {
            out += c;
        }
    }
    return out;
}

}  // namespace

View& current() {
    if (detail::t_scopeView != nullptr) {
        return *detail::t_scopeView;
    }
    std::lock_guard<std::mutex> lock(viewMutex());
    std::unique_ptr<View>& view = slot();
    if (!view) {
        view = makeLiveView();
    }
    return *view;
}

void useRoot(const std::string& root) {
    install(root.empty() || root == "/" ? makeLiveView() : makeReplayView(root));
}

void install(std::unique_ptr<View> view) {
    std::lock_guard<std::mutex> lock(viewMutex());
    slot() = std::move(view);
}

namespace {
std::mutex& limitsMutex() {
    static std::mutex m;
    return m;
}
exec::RunLimits& limitsSlot() {
    static exec::RunLimits limits;
    return limits;
}
}  // namespace

void setCommandLimits(const exec::RunLimits& limits) {
    std::lock_guard<std::mutex> lock(limitsMutex());
    limitsSlot() = limits;
}

exec::RunLimits commandLimits() {
    std::lock_guard<std::mutex> lock(limitsMutex());
    return limitsSlot();
}

namespace {
std::map<std::string, std::string>& variablesSlot() {
    static std::map<std::string, std::string> variables;
    return variables;
}
}  // namespace

void setCommandVariable(const std::string& name, const std::string& value) {
    std::lock_guard<std::mutex> lock(limitsMutex());
    if (value.empty()) {
        variablesSlot().erase(name);
    } else {
        variablesSlot()[name] = value;
    }
}

exec::EnvVars commandEnvironment() {
    exec::EnvVars env = exec::Process::envVars();
    std::lock_guard<std::mutex> lock(limitsMutex());
    for (const auto& [name, value] : variablesSlot()) {
        env.vars[name] = value;
    }
    return env;
}

std::string commandFileName(const std::string& program, const std::list<std::string>& args) {
    std::string line = program;
    for (const std::string& a : args) {
        line += ' ';
        line += a;
    }
    return escapeForFileName(line);
}

std::string kernelName(const std::string& device) {
    return device.compare(0, 5, "/dev/") == 0 ? device.substr(5) : device;
}

std::string sysfsName(std::string kernelName) {
    std::replace(kernelName.begin(), kernelName.end(), '/', '!');
    return kernelName;
}

std::string fromSysfsName(std::string sysfsName) {
    std::replace(sysfsName.begin(), sysfsName.end(), '!', '/');
    return sysfsName;
}

std::string ioctlFileName(const std::string& device, const std::string& query) {
    return sysfsName(kernelName(device)) + "." + query;
}

}  // namespace vessa::sal::sys
