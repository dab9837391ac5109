// The live system view: this machine, root "/".
#include <unistd.h>
#include <cerrno>

#include "platform/Exception.h"
#include "platform/PosixFiles.h"
#include "platform/Process.h"
#include "platform/SystemView.h"

namespace vessa::sal::sys {

namespace {

class LiveView : public View {
  public:
    const std::string& root() const override { return root_; }

    bool readFile(const std::string& path, std::string& content) override {
        return posix::readWhole(path, content);
    }
    bool listDirectory(const std::string& path, std::vector<DirEntry>& entries) override {
        return posix::listDirectory(path, entries);
    }
    bool status(const std::string& path, FileStatus& st) override { return posix::status(path, st); }
    bool readLink(const std::string& path, std::string& target, std::size_t limit) override {
        return posix::readLink(path, target, limit);
    }
    bool fsStatus(const std::string& path, FsStatus& st) override { return posix::fsStatus(path, st); }
    bool deviceReadable(const std::string& path) override { return posix::firstLineReadable(path); }

    std::string hostName() override {
        char name[256] = {};
        if (::gethostname(name, sizeof name - 1) != 0) {
            return "localhost";
        }
        return name;
    }

    bool run(const std::string& program, const std::list<std::string>& args, std::string& output,
             int& status) override {
        try {
            status = exec::runCaptured(program, args, output);
            return true;
        } catch (const vessa::Exception&) {
            return false;
        }
    }

    IoctlResult scsiInquiry(const std::string& /*device*/, unsigned int /*timeoutSeconds*/) override {
        IoctlResult r;
        r.err = ENOTTY;
        return r;
    }
    std::string scsiAddress(const std::string& /*device*/) override { return ""; }
    unsigned int readCapacityBlockSize(const std::string& /*device*/, bool /*sixteen*/) override { return 0; }

  private:
    std::string root_ = "/";
};

}  // namespace

std::unique_ptr<View> makeLiveView() {
    return std::make_unique<LiveView>();
}

}  // namespace vessa::sal::sys
