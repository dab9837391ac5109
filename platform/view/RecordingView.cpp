#include "platform/view/RecordingView.h"

#include <filesystem>
#include <fstream>

namespace vessa::sal::sys {

namespace fs = std::filesystem;

RecordingView::RecordingView(std::unique_ptr<View> inner, std::string dir)
    : inner_(std::move(inner)), dir_(std::move(dir)) {}

std::string RecordingView::target(const std::string& hostPath) const {
    return dir_ + (hostPath.empty() || hostPath[0] != '/' ? "/" : "") + hostPath;
}

void RecordingView::fail(const std::string& what) {
    if (error_.empty()) {
        error_ = what;
    }
}

void RecordingView::makeDirectory(const std::string& hostPath) {
    std::error_code ec;
    const fs::path p = target(hostPath);
    if (fs::is_directory(p, ec)) {
        return;
    }
    if (fs::is_symlink(p, ec) || fs::is_regular_file(p, ec)) {
        // A placeholder written for a listed entry turns out to be a directory.
        fs::remove(p, ec);
    }
    fs::create_directories(p, ec);
    if (ec) {
        fail("cannot create " + p.string() + ": " + ec.message());
    }
}

void RecordingView::writeFile(const std::string& hostPath, const std::string& content, bool overwrite) {
    std::error_code ec;
    const fs::path p = target(hostPath);
    if (links_.count(hostPath) || fs::is_directory(p, ec)) {
        return;
    }
    if (!overwrite && fs::exists(p, ec)) {
        return;
    }
    makeDirectory(fs::path(hostPath).parent_path().string());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) {
        fail("cannot write " + p.string());
    }
}

void RecordingView::writeRecording(const std::string& relative, const std::string& content) {
    const fs::path p = fs::path(dir_) / ".vessa" / relative;
    std::error_code ec;
    fs::create_directories(p.parent_path(), ec);
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out) {
        fail("cannot write " + p.string());
    }
}

bool RecordingView::readFile(const std::string& path, std::string& content) {
    if (!inner_->readFile(path, content)) {
        return false;
    }
    writeFile(path, content, true);
    return true;
}

bool RecordingView::listDirectory(const std::string& path, std::vector<DirEntry>& entries) {
    std::vector<DirEntry> found;
    if (!inner_->listDirectory(path, found)) {
        return false;
    }
    makeDirectory(path);
    const std::string base = path.empty() || path.back() == '/' ? path : path + "/";
    for (const DirEntry& e : found) {
        // What an entry is matters to replay only as "a directory or not": links to directories
        // (as /sys/block lists its devices) become directories, everything else an empty file until
        // its content, its link target or its readability is asked for.
        FileStatus st;
        const bool directory =
            e.type == DirEntry::Directory ||
            (e.type == DirEntry::Link && inner_->status(base + e.name, st) && st.isDirectory);
        if (directory) {
            makeDirectory(base + e.name);
        } else {
            writeFile(base + e.name, "", false);
        }
    }
    entries.insert(entries.end(), found.begin(), found.end());
    return true;
}

bool RecordingView::status(const std::string& path, FileStatus& st) {
    if (!inner_->status(path, st)) {
        return false;
    }
    if (st.isDirectory) {
        makeDirectory(path);
    } else {
        writeFile(path, "", false);
    }
    if (st.isBlockDevice) {
        writeRecording("ioctl/" + ioctlFileName(path, "size"), std::to_string(st.size) + "\n");
        writeRecording("ioctl/" + ioctlFileName(path, "block_size"), std::to_string(st.blockSize) + "\n");
    }
    return true;
}

bool RecordingView::readLink(const std::string& path, std::string& target, std::size_t limit) {
    if (!inner_->readLink(path, target, limit)) {
        return false;
    }
    std::error_code ec;
    const fs::path p = this->target(path);
    makeDirectory(fs::path(path).parent_path().string());
    if (fs::is_regular_file(p, ec) && fs::file_size(p, ec) == 0) {
        fs::remove(p, ec);
    }
    if (!fs::exists(fs::symlink_status(p, ec))) {
        fs::create_symlink(target, p, ec);
        if (ec) {
            fail("cannot link " + p.string() + ": " + ec.message());
        }
    }
    links_.insert(path);
    return true;
}

bool RecordingView::fsStatus(const std::string& path, FsStatus& st) {
    if (!inner_->fsStatus(path, st)) {
        return false;
    }
    makeDirectory(path);
    return true;
}

bool RecordingView::deviceReadable(const std::string& path) {
    const bool readable = inner_->deviceReadable(path);
    // Only the mark is kept, never the device's data.
    writeFile(path, readable ? "readable\n" : "", readable);
    return readable;
}

std::string RecordingView::hostName() {
    const std::string name = inner_->hostName();
    writeFile("/etc/hostname", name + "\n", true);
    return name;
}

RunOutcome RecordingView::run(const std::string& program, const std::list<std::string>& args,
                              std::string& output, int& status) {
    std::string text;
    const RunOutcome outcome = inner_->run(program, args, text, status);
    if (outcome != RunOutcome::Exited) {
        return outcome;
    }
    const std::string name = "commands/" + commandFileName(program, args);
    writeRecording(name, text);
    if (status != 0) {
        writeRecording(name + ".status", std::to_string(status) + "\n");
    }
    output += text;
    return RunOutcome::Exited;
}

IoctlResult RecordingView::scsiInquiry(const std::string& device, unsigned int timeoutSeconds) {
    IoctlResult r = inner_->scsiInquiry(device, timeoutSeconds);
    if (r.rc >= 0) {
        writeRecording("ioctl/" + ioctlFileName(device, "inquiry"),
                       std::string(r.data.begin(), r.data.end()));
    }
    return r;
}

ScsiAddressResult RecordingView::scsiAddress(const std::string& device) {
    ScsiAddressResult r = inner_->scsiAddress(device);
    if (r.source != ScsiAddressResult::None) {
        writeRecording("ioctl/" + ioctlFileName(device, "scsi_address"), r.address + "\n");
    }
    return r;
}

ExclusiveOpen RecordingView::exclusiveOpen(const std::string& device) {
    const ExclusiveOpen r = inner_->exclusiveOpen(device);
    const std::string text = r.result == ExclusiveOpen::Free   ? "free"
                             : r.result == ExclusiveOpen::Busy ? "busy"
                                                               : "error " + std::to_string(r.err);
    writeRecording("ioctl/" + ioctlFileName(device, "exclusive"), text + "\n");
    return r;
}

bool RecordingView::privileged() {
    const bool p = inner_->privileged();
    writeRecording("euid", std::string(p ? "0" : "65534") + "\n");
    return p;
}

unsigned int RecordingView::readCapacityBlockSize(const std::string& device, bool sixteen) {
    const unsigned int size = inner_->readCapacityBlockSize(device, sixteen);
    if (size != 0) {
        writeRecording("ioctl/" + ioctlFileName(device, "read_capacity"), std::to_string(size) + "\n");
    }
    return size;
}

}  // namespace vessa::sal::sys
