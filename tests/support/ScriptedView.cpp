#include "support/ScriptedView.h"

#include <cerrno>

namespace vessa::test {

namespace sys = vessa::sal::sys;

namespace {

// The scripted answer for `key`, or null.
template <class Map>
const typename Map::mapped_type* find(const Map& map, const std::string& key) {
    auto it = map.find(key);
    return it == map.end() ? nullptr : &it->second;
}

}  // namespace

bool ScriptedView::readFile(const std::string& path, std::string& content) {
    const std::string* found = find(files, path);
    return found != nullptr && (content = *found, true);
}

bool ScriptedView::listDirectory(const std::string& path, std::vector<sys::DirEntry>& entries) {
    const std::vector<std::string>* names = find(dirs, path);
    for (std::size_t i = 0; names != nullptr && i < names->size(); ++i) {
        entries.emplace_back().name = (*names)[i];
    }
    return names != nullptr;
}

bool ScriptedView::status(const std::string& path, sys::FileStatus& st) {
    st = sys::FileStatus();
    const std::string* file = find(files, path);
    st.isDirectory = dirs.count(path) != 0;
    st.isRegular = !st.isDirectory && file != nullptr;
    st.size = st.isRegular ? static_cast<long long>(file->size()) : 0;
    return st.isDirectory || st.isRegular;
}

bool ScriptedView::readLink(const std::string& path, std::string& target, std::size_t limit) {
    const std::string* found = find(links, path);
    return found != nullptr && (target = found->substr(0, limit), true);
}

bool ScriptedView::fsStatus(const std::string& path, sys::FsStatus& /*st*/) {
    return dirs.count(path) != 0;
}

bool ScriptedView::deviceReadable(const std::string& path) {
    const std::string* found = find(files, path);
    return found != nullptr && !found->empty();
}

sys::RunOutcome ScriptedView::run(const std::string& program, const std::list<std::string>& args,
                                  std::string& output, int& status) {
    ran.push_back(sys::commandFileName(program, args));
    const Command* c = find(commands, ran.back());
    if (c != nullptr && c->outcome == sys::RunOutcome::Exited) {
        output += c->output;
        status = c->status;
    }
    return c == nullptr ? sys::RunOutcome::NotStarted : c->outcome;
}

// Every device answers as one that is no SCSI device.
sys::IoctlResult ScriptedView::scsiInquiry(const std::string& /*device*/, unsigned int timeoutSeconds) {
    inquiryTimeouts.push_back(timeoutSeconds);
    return sys::IoctlResult{-1, ENOTTY, std::vector<std::uint8_t>(96, 0)};
}

sys::ScsiAddressResult ScriptedView::scsiAddress(const std::string& device) {
    const sys::ScsiAddressResult* found = find(addresses, sys::kernelName(device));
    return found != nullptr ? *found : sys::ScsiAddressResult{sys::ScsiAddressResult::None, ENOTTY, ""};
}

sys::ExclusiveOpen ScriptedView::exclusiveOpen(const std::string& /*device*/) {
    return sys::ExclusiveOpen{sys::ExclusiveOpen::Failed, ENOENT};
}

unsigned int ScriptedView::readCapacityBlockSize(const std::string& /*device*/, bool /*sixteen*/) {
    return 0;
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
