#include "platform/view/RecordingView.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace vessa::sal::sys {

namespace fs = std::filesystem;
using posix::RootedFiles;

RecordingView::RecordingView(std::unique_ptr<View> inner, std::string dir)
    : inner_(std::move(inner)), dir_(std::move(dir)), files_(dir_) {}

void RecordingView::fail(const std::string& what) {
    if (error_.empty()) {
        error_ = what;
    }
}

void RecordingView::failed(const std::string& what, const std::string& hostPath) {
    const int err = errno;
    fail(what + " " + dir_ + (hostPath.empty() || hostPath[0] != '/' ? "/" : "") + hostPath + ": " +
         (files_.valid() ? std::strerror(err) : "cannot open the snapshot directory"));
}

void RecordingView::makeDirectory(const std::string& hostPath) {
    if (hostPath.empty() || hostPath == "/" || files_.isDirectory(hostPath)) {
        return;
    }
    // One level at a time, so that a link on the way that leads nowhere in the capture is replaced
    // as well, rather than followed.
    makeDirectory(fs::path(hostPath).parent_path().string());
    const RootedFiles::Kind kind = files_.kind(hostPath);
    if (kind == RootedFiles::Kind::Link || kind == RootedFiles::Kind::Regular) {
        // A placeholder written for a listed entry, or a link whose target was never recorded, turns
        // out to be a directory.
        files_.remove(hostPath);
    }
    if (!files_.makeDirectories(hostPath)) {
        failed("cannot create", hostPath);
    }
}

void RecordingView::writeFile(const std::string& hostPath, const std::string& content, bool overwrite) {
    // A path recorded as a link keeps its link; nothing is written through it.
    const RootedFiles::Kind kind = files_.kind(hostPath);
    if (links_.count(hostPath) || kind == RootedFiles::Kind::Link || kind == RootedFiles::Kind::Directory) {
        return;
    }
    if (!overwrite && kind != RootedFiles::Kind::Missing) {
        return;
    }
    makeDirectory(fs::path(hostPath).parent_path().string());
    if (!files_.writeFile(hostPath, content)) {
        failed("cannot write", hostPath);
    }
}

void RecordingView::writeRecording(const std::string& relative, const std::string& content) {
    const std::string hostPath = "/.vessa/" + relative;
    makeDirectory(fs::path(hostPath).parent_path().string());
    if (!files_.writeFile(hostPath, content)) {
        failed("cannot write", hostPath);
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
    makeDirectory(fs::path(path).parent_path().string());
    long long size = 0;
    RootedFiles::Kind kind = files_.kind(path, &size);
    if (kind == RootedFiles::Kind::Regular && size == 0 && files_.remove(path)) {
        kind = RootedFiles::Kind::Missing;
    }
    if (kind == RootedFiles::Kind::Missing && !files_.makeLink(target, path)) {
        failed("cannot link", path);
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
    recordCommand(program, args, text, status);
    output += text;
    return RunOutcome::Exited;
}

void RecordingView::recordCommand(const std::string& program, const std::list<std::string>& args,
                                  const std::string& text, int status) {
    const std::string name = "commands/" + commandFileName(program, args);
    writeRecording(name, text);
    if (status != 0) {
        writeRecording(name + ".status", std::to_string(status) + "\n");
    }
}

RunOutcome RecordingView::describeContent(const std::string& path, std::string& output, int& status) {
    // Kept as the command it stands for, so that a replay answers it as before.
    std::string text;
    const RunOutcome outcome = inner_->describeContent(path, text, status);
    if (outcome == RunOutcome::Exited) {
        recordCommand("file", {"-s", path}, text, status);
        output += text;
    }
    return outcome;
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

SignatureProbe RecordingView::readSignatures(const std::string& device) {
    const SignatureProbe r = inner_->readSignatures(device);
    if (r.state != SignatureProbe::NotRead) {
        writeRecording("ioctl/" + ioctlFileName(device, "signatures"), formatSignatures(r));
    }
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
