// The replay system view: a snapshot directory stands for the machine's root. Nothing is run and no
// ioctl is issued; commands and ioctls are answered from the snapshot's recordings.
#include <sys/stat.h>
#include <cerrno>

#include "platform/Str.h"
#include "platform/view/PosixFiles.h"
#include "platform/view/SystemView.h"

namespace vessa::sal::sys {

namespace str = vessa::util::str;

namespace {

// Splits a host path into its components, dropping empty ones and ".".
std::vector<std::string> components(const std::string& path) {
    std::vector<std::string> parts;
    std::string::size_type start = 0;
    while (start <= path.size()) {
        std::string::size_type slash = path.find('/', start);
        std::string part = path.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (!part.empty() && part != ".") {
            parts.push_back(part);
        }
        if (slash == std::string::npos) {
            break;
        }
        start = slash + 1;
    }
    return parts;
}

class ReplayView : public View {
  public:
    explicit ReplayView(std::string root) : root_(std::move(root)) {
        while (root_.size() > 1 && root_.back() == '/') {
            root_.pop_back();
        }
    }

    const std::string& root() const override { return root_; }

    bool readFile(const std::string& path, std::string& content) override {
        return posix::readWhole(resolve(path, true), content);
    }
    bool listDirectory(const std::string& path, std::vector<DirEntry>& entries) override {
        return posix::listDirectory(resolve(path, true), entries);
    }

    bool status(const std::string& path, FileStatus& st) override {
        if (!posix::status(resolve(path, true), st)) {
            return false;
        }
        if (path.compare(0, 5, "/dev/") == 0) {
            std::string size;
            if (recording("size", path, size)) {
                st.isBlockDevice = true;
                st.isRegular = false;
                st.size = number(size);
                std::string blockSize;
                st.blockSize = recording("block_size", path, blockSize) ? number(blockSize) : 0;
            }
        }
        return true;
    }

    bool readLink(const std::string& path, std::string& target, std::size_t limit) override {
        return posix::readLink(resolve(path, false), target, limit);
    }
    bool fsStatus(const std::string& path, FsStatus& st) override {
        return posix::fsStatus(resolve(path, true), st);
    }

    bool deviceReadable(const std::string& path) override {
        struct stat s;
        std::string real = resolve(path, true);
        return ::stat(real.c_str(), &s) == 0 && S_ISREG(s.st_mode) && s.st_size > 0;
    }

    std::string hostName() override {
        std::string content;
        if (!readFile("/etc/hostname", content)) {
            return "localhost";
        }
        std::string first = str::trim(content.substr(0, content.find('\n')));
        return first.empty() ? "localhost" : first;
    }

    RunOutcome run(const std::string& program, const std::list<std::string>& args, std::string& output,
                   int& status) override {
        const std::string file = root_ + "/.vessa/commands/" + commandFileName(program, args);
        std::string text;
        if (!posix::readWhole(file, text)) {
            return RunOutcome::NotStarted;
        }
        std::string statusText;
        status = posix::readWhole(file + ".status", statusText) ? static_cast<int>(number(statusText)) : 0;
        output += text;
        return RunOutcome::Exited;
    }

    IoctlResult scsiInquiry(const std::string& device, unsigned int /*timeoutSeconds*/) override {
        IoctlResult r;
        std::string bytes;
        if (recording("inquiry", device, bytes)) {
            r.rc = 0;
            r.err = 0;
            r.data.assign(bytes.begin(), bytes.end());
        } else {
            r.rc = -1;
            r.err = ENOTTY;
        }
        return r;
    }

    ScsiAddressResult scsiAddress(const std::string& device) override {
        ScsiAddressResult r;
        std::string text;
        if (recording("scsi_address", device, text) && !str::trim(text).empty()) {
            r.source = ScsiAddressResult::ScsiId;
            r.address = str::trim(text);
        } else {
            r.scsiIdErrno = ENOTTY;
        }
        return r;
    }

    unsigned int readCapacityBlockSize(const std::string& device, bool /*sixteen*/) override {
        std::string text;
        return recording("read_capacity", device, text) ? static_cast<unsigned int>(number(text)) : 0;
    }

    ExclusiveOpen exclusiveOpen(const std::string& device) override {
        ExclusiveOpen r;
        std::string text;
        if (!recording("exclusive", device, text)) {
            r.err = ENOENT;
            return r;
        }
        text = str::trim(text);
        if (text == "free") {
            r.result = ExclusiveOpen::Free;
        } else if (text == "busy") {
            r.result = ExclusiveOpen::Busy;
            r.err = EBUSY;
        } else {
            r.err = text.rfind("error ", 0) == 0 ? static_cast<int>(number(text.substr(6))) : EIO;
        }
        return r;
    }

    bool privileged() override {
        std::string text;
        return !posix::readWhole(root_ + "/.vessa/euid", text) || number(text) == 0;
    }

  private:
    bool recording(const std::string& query, const std::string& device, std::string& content) const {
        return posix::readWhole(root_ + "/.vessa/ioctl/" + ioctlFileName(device, query), content);
    }

    static long long number(const std::string& text) {
        long long value = 0;
        try {
            str::to(value, text);
        } catch (const str::Exception&) {
            return 0;
        }
        return value;
    }

    // The real path of a host path inside the snapshot. Symbolic links are followed under the root
    // (all of them, or all but the last component when `followLast` is false), so that an absolute
    // link target never leaves the snapshot. ".." never climbs above the root.
    std::string resolve(const std::string& path, bool followLast) const {
        std::vector<std::string> pending = components(path);
        std::vector<std::string> done;
        int hops = 0;
        std::size_t i = 0;
        while (i < pending.size()) {
            const std::string part = pending[i];
            if (part == "..") {
                if (!done.empty()) {
                    done.pop_back();
                }
                ++i;
                continue;
            }
            std::string real = join(done) + "/" + part;
            bool last = i + 1 == pending.size();
            struct stat s;
            if ((last && !followLast) || ::lstat(real.c_str(), &s) != 0 || !S_ISLNK(s.st_mode) || hops > 40) {
                done.push_back(part);
                ++i;
                continue;
            }
            ++hops;
            std::string target;
            if (!posix::readLink(real, target, 4096)) {
                done.push_back(part);
                ++i;
                continue;
            }
            std::vector<std::string> rest(pending.begin() + static_cast<long>(i) + 1, pending.end());
            pending = components(target);
            pending.insert(pending.end(), rest.begin(), rest.end());
            if (!target.empty() && target[0] == '/') {
                done.clear();
            }
            i = 0;
        }
        return join(done);
    }

    std::string join(const std::vector<std::string>& parts) const {
        std::string out = root_;
        for (const std::string& p : parts) {
            out += "/";
            out += p;
        }
        return out;
    }

    std::string root_;
};

}  // namespace

std::unique_ptr<View> makeReplayView(const std::string& root) {
    return std::make_unique<ReplayView>(root);
}

}  // namespace vessa::sal::sys
