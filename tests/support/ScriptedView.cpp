#include "support/ScriptedView.h"

#include <cerrno>

namespace vessa::test {

namespace sys = vessa::sal::sys;

bool ScriptedView::readFile(const std::string& path, std::string& content) {
    auto it = files.find(path);
    if (it == files.end()) {
        return false;
    }
    content = it->second;
    return true;
}

bool ScriptedView::listDirectory(const std::string& path, std::vector<sys::DirEntry>& entries) {
    auto it = dirs.find(path);
    if (it == dirs.end()) {
        return false;
    }
    for (const std::string& name : it->second) {
        sys::DirEntry e;
        e.name = name;
        entries.push_back(e);
    }
    return true;
}

bool ScriptedView::status(const std::string& path, sys::FileStatus& st) {
    st = sys::FileStatus();
    if (dirs.count(path)) {
        st.isDirectory = true;
        return true;
    }
    auto it = files.find(path);
    if (it == files.end()) {
        return false;
    }
    st.isRegular = true;
    st.size = static_cast<long long>(it->second.size());
    return true;
}

bool ScriptedView::readLink(const std::string& path, std::string& target, std::size_t limit) {
    auto it = links.find(path);
    if (it == links.end()) {
        return false;
    }
    target = it->second.substr(0, limit);
    return true;
}

bool ScriptedView::fsStatus(const std::string& path, sys::FsStatus& /*st*/) {
    return dirs.count(path) != 0;
}

bool ScriptedView::deviceReadable(const std::string& path) {
    auto it = files.find(path);
    return it != files.end() && !it->second.empty();
}

sys::RunOutcome ScriptedView::run(const std::string& program, const std::list<std::string>& args,
                                  std::string& output, int& status) {
    const std::string name = sys::commandFileName(program, args);
    ran.push_back(name);
    auto it = commands.find(name);
    if (it == commands.end()) {
        return sys::RunOutcome::NotStarted;
    }
    if (it->second.outcome != sys::RunOutcome::Exited) {
        return it->second.outcome;
    }
    output += it->second.output;
    status = it->second.status;
    return sys::RunOutcome::Exited;
}

sys::IoctlResult ScriptedView::scsiInquiry(const std::string& device, unsigned int timeoutSeconds) {
    inquiryTimeouts.push_back(timeoutSeconds);
    auto it = inquiries.find(sys::kernelName(device));
    if (it != inquiries.end()) {
        return it->second;
    }
    sys::IoctlResult r;
    r.rc = -1;
    r.err = ENOTTY;
    r.data.assign(96, 0);
    return r;
}

sys::ScsiAddressResult ScriptedView::scsiAddress(const std::string& device) {
    auto it = addresses.find(sys::kernelName(device));
    if (it != addresses.end()) {
        return it->second;
    }
    sys::ScsiAddressResult r;
    r.scsiIdErrno = ENOTTY;
    return r;
}

sys::ExclusiveOpen ScriptedView::exclusiveOpen(const std::string& device) {
    sys::ExclusiveOpen r;
    auto it = exclusive.find(sys::kernelName(device));
    if (it == exclusive.end()) {
        r.err = ENOENT;
    } else {
        r.result = it->second;
    }
    return r;
}

unsigned int ScriptedView::readCapacityBlockSize(const std::string& device, bool /*sixteen*/) {
    auto it = capacities.find(sys::kernelName(device));
    return it == capacities.end() ? 0 : it->second;
}

ScopedView::ScopedView(std::unique_ptr<sys::View> view) {
    sys::install(std::move(view));
}

ScopedView::ScopedView(const std::string& root) {
    sys::useRoot(root);
}

ScopedView::~ScopedView() {
    sys::install(sys::makeLiveView());
}

}  // namespace vessa::test
