// The replay system view: a snapshot directory stands for the machine's root. Nothing is run and no
// ioctl is issued; commands and ioctls are answered from the snapshot's recordings.
#include <cerrno>
#include <mutex>
#include <unordered_set>

#include "platform/Str.h"
#include "platform/view/RootedFiles.h"
#include "platform/view/SystemView.h"

namespace vessa::sal::sys {

namespace str = vessa::util::str;

namespace {

class ReplayView : public View {
  public:
    explicit ReplayView(std::string root) : root_(std::move(root)), files_(root_) {
        while (root_.size() > 1 && root_.back() == '/') {
            root_.pop_back();
        }
    }

    const std::string& root() const override { return root_; }

    bool readFile(const std::string& path, std::string& content) override {
        return files_.readFile(path, content);
    }
    bool readListedFile(const std::string& path, std::string& content) override {
        return files_.readListedFile(path, content);
    }
    bool prefersListedReads() const override { return true; }
    // Every read opens its own descriptors below a root that does not change.
    bool allowsConcurrentReads() const override { return true; }
    bool listDirectory(const std::string& path, std::vector<DirEntry>& entries) override {
        return files_.listDirectory(path, entries);
    }

    // A device node's capacity comes from its recording; the node itself, if the snapshot holds one,
    // is never opened.
    bool status(const std::string& path, FileStatus& st) override {
        if (!files_.status(path, st)) {
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
        return files_.readLink(path, target, limit);
    }
    bool fsStatus(const std::string& path, FsStatus& st) override { return files_.fsStatus(path, st); }

    bool deviceReadable(const std::string& path) override {
        FileStatus st;
        return files_.status(path, st) && st.isRegular && st.size > 0;
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
        const std::string name = commandFileName(program, args);
        const std::string file = "/.vessa/commands/" + name;
        std::string text;
        bool cut = false;
        if (!recorded("commands", name) || !files_.readFile(file, text, commandLimits().maxOutput, &cut)) {
            return RunOutcome::NotStarted;
        }
        // A recording longer than the live run would have taken ends as that run would have.
        if (cut) {
            return RunOutcome::TooMuchOutput;
        }
        std::string statusText;
        status = recorded("commands", name + ".status") && files_.readFile(file + ".status", statusText)
                     ? static_cast<int>(number(statusText))
                     : 0;
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

    SignatureProbe readSignatures(const std::string& device) override {
        std::string text;
        return recording("signatures", device, text) ? parseSignatures(text) : SignatureProbe();
    }

    bool privileged() override {
        std::string text;
        return !files_.readFile("/.vessa/euid", text) || number(text) == 0;
    }

  private:
    bool recording(const std::string& query, const std::string& device, std::string& content) const {
        const std::string name = ioctlFileName(device, query);
        return recorded("ioctl", name) && files_.readFile("/.vessa/ioctl/" + name, content);
    }

    // Whether the snapshot holds a recording of that name (in .vessa/commands or .vessa/ioctl). Each
    // folder is listed once, when first asked: a run asks about every device, and most have no answer
    // for most questions, which would otherwise cost a failed open each.
    bool recorded(const std::string& folder, const std::string& name) const {
        std::call_once(indexed_, [this] {
            for (const char* f : {"commands", "ioctl"}) {
                std::vector<DirEntry> entries;
                files_.listDirectory(std::string("/.vessa/") + f, entries);
                for (const DirEntry& e : entries) {
                    recordings_.insert(std::string(f) + "/" + e.name);
                }
            }
        });
        return recordings_.count(folder + "/" + name) != 0;
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

    mutable std::once_flag indexed_;
    mutable std::unordered_set<std::string> recordings_;
    std::string root_;
    posix::RootedFiles files_;
};

}  // namespace

std::unique_ptr<View> makeReplayView(const std::string& root) {
    return std::make_unique<ReplayView>(root);
}

}  // namespace vessa::sal::sys
