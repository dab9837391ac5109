// The live system view: this machine, root "/".
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/Exception.h"
#include "platform/Process.h"
#include "platform/Scsi.h"
#include "platform/view/ContentTest.h"
#include "platform/view/PosixFiles.h"
#include "platform/view/ProbingView.h"
#include "platform/view/SystemView.h"

namespace vessa::sal::sys {

namespace {

// A device opened for one query and closed after it. A failed open leaves -1, which makes the
// ioctl that follows fail the way a device that does not answer would.
struct Device {
    explicit Device(const std::string& name) : fd(scsi::openDevice(name)) {}
    ~Device() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    int fd;
};

// The machine itself. Its device probes may block in the kernel: the view that the library uses puts
// them on helper processes (ProbingView) and calls these only there.
class LiveView : public View {
  public:
    const std::string& root() const override { return root_; }
    bool allowsConcurrentReads() const override { return true; }
    bool allowsConcurrentCommands() const override { return true; }

    // Loads the content test's database here, before helpers are forked from this process.
    void prepareContentTest() { content_.load(); }

    RunOutcome describeContent(const std::string& path, std::string& output, int& status) override {
        if (!content_.describe(path, output)) {
            return RunOutcome::NotStarted;
        }
        status = 0;
        return RunOutcome::Exited;
    }

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

    RunOutcome run(const std::string& program, const std::list<std::string>& args, std::string& output,
                   int& status) override {
        try {
            const std::size_t kept = output.size();
            exec::RunStreams streams;
            streams.output = [&output](const char* data, std::size_t size) { output.append(data, size); };
            streams.hasEnv = true;
            streams.env = commandEnvironment();
            const exec::RunResult r = exec::runBounded(program, args, streams, commandLimits());
            if (r.outcome != exec::RunResult::Exited) {
                output.resize(kept);
            }
            switch (r.outcome) {
                case exec::RunResult::TimedOut:
                    return RunOutcome::TimedOut;
                case exec::RunResult::TooMuchOutput:
                    return RunOutcome::TooMuchOutput;
                case exec::RunResult::Exited:
                    break;
            }
            status = r.status;
            return RunOutcome::Exited;
        } catch (const vessa::Exception&) {
            return RunOutcome::NotStarted;
        }
    }

    IoctlResult scsiInquiry(const std::string& device, unsigned int timeoutSeconds) override {
        Device d(device);
        const auto command = scsi::inquiryCommand();
        return scsi::readFromDevice(d.fd, command.data(), command.size(), scsi::kInquiryLength,
                                    timeoutSeconds);
    }

    ScsiAddressResult scsiAddress(const std::string& device) override {
        Device d(device);
        return scsi::address(d.fd);
    }

    unsigned int readCapacityBlockSize(const std::string& device, bool sixteen) override {
        Device d(device);
        if (d.fd < 0) {
            return 0;
        }
        if (sixteen) {
            const auto command = scsi::readCapacity16Command();
            IoctlResult r = scsi::readFromDevice(d.fd, command.data(), command.size(),
                                                 scsi::kReadCapacity16Length, kReadCapacityTimeoutSeconds);
            return r.rc < 0 ? 0 : scsi::readCapacity16BlockSize(r.data);
        }
        const auto command = scsi::readCapacity10Command();
        IoctlResult r = scsi::readFromDevice(d.fd, command.data(), command.size(),
                                             scsi::kReadCapacity10Length, kReadCapacityTimeoutSeconds);
        return r.rc < 0 ? 0 : scsi::readCapacity10BlockSize(r.data);
    }

    ExclusiveOpen exclusiveOpen(const std::string& device) override {
        ExclusiveOpen r;
        const std::string path = "/dev/" + kernelName(device);
        // Non-blocking, so that a drive without a medium does not wait for one.
        const int fd = ::open(path.c_str(), O_RDONLY | O_EXCL | O_NONBLOCK | O_CLOEXEC);
        if (fd >= 0) {
            ::close(fd);
            r.result = ExclusiveOpen::Free;
        } else {
            r.err = errno;
            r.result = errno == EBUSY ? ExclusiveOpen::Busy : ExclusiveOpen::Failed;
        }
        return r;
    }

    SignatureProbe readSignatures(const std::string& device) override {
        return probeSignatures("/dev/" + kernelName(device));
    }

    // One open and one read of the device's first MiB for both: the signature probe asks for it ahead
    // with its own reads, and the content test then reads it from the cache. On a SAN path that is one
    // round trip and half a MiB fewer for every blank device.
    SignatureProbe readSignaturesWithContent(const std::string& device, const std::string& contentPath,
                                             RunOutcome& outcome, std::string& output, int& status) override {
        const int fd = ::open(("/dev/" + kernelName(device)).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0) {
            return View::readSignaturesWithContent(device, contentPath, outcome, output, status);
        }
        const SignatureProbe signatures = probeSignatures(fd, ContentTest::kContentBytes);
        outcome = content_.describe(contentPath, fd, output) ? RunOutcome::Exited : RunOutcome::NotStarted;
        status = 0;
        ::close(fd);
        return signatures;
    }

    bool privileged() override { return ::geteuid() == 0; }

  private:
    std::string root_ = "/";
    ContentTest content_;
};

}  // namespace

std::unique_ptr<View> makeLiveView() {
    auto live = std::make_unique<LiveView>();
    LiveView* machine = live.get();
    return std::make_unique<ProbingView>(std::move(live), [machine] { machine->prepareContentTest(); });
}

}  // namespace vessa::sal::sys
