// A system view whose answers a test sets directly; everything not scripted behaves as missing (no device
// answers an INQUIRY, has a capacity block size or opens exclusively), and the run is privileged.
// Installed with ScopedView, which puts the live view back afterwards.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/view/SystemView.h"

namespace vessa::test {

class ScriptedView : public vessa::sal::sys::View {
  public:
    struct Command {
        vessa::sal::sys::RunOutcome outcome = vessa::sal::sys::RunOutcome::Exited;
        int status = 0;
        std::string output;
        Command() = default;
        Command(vessa::sal::sys::RunOutcome o, int st, std::string out)
            : outcome(o), status(st), output(std::move(out)) {}
        // `starts` false: the program cannot be started.
        Command(bool starts, int st, std::string out)
            : Command(starts ? vessa::sal::sys::RunOutcome::Exited : vessa::sal::sys::RunOutcome::NotStarted,
                      st, std::move(out)) {}
    };

    std::map<std::string, std::string> files;              // host path -> content
    std::map<std::string, std::vector<std::string>> dirs;  // host path -> names
    std::map<std::string, std::string> links;              // host path -> target
    std::map<std::string, Command> commands;               // command file name -> answer
    std::map<std::string, vessa::sal::sys::ScsiAddressResult> addresses;
    std::string host = "scripted";
    std::vector<std::string> ran;               // command file names, in the order they were run
    std::vector<unsigned int> inquiryTimeouts;  // the timeout of every INQUIRY asked

    const std::string& root() const override { return root_; }
    bool readFile(const std::string& path, std::string& content) override;
    bool listDirectory(const std::string& path, std::vector<vessa::sal::sys::DirEntry>& entries) override;
    bool status(const std::string& path, vessa::sal::sys::FileStatus& st) override;
    bool readLink(const std::string& path, std::string& target, std::size_t limit) override;
    bool fsStatus(const std::string& path, vessa::sal::sys::FsStatus& st) override;
    bool deviceReadable(const std::string& path) override;
    std::string hostName() override { return host; }
    vessa::sal::sys::RunOutcome run(const std::string& program, const std::list<std::string>& args,
                                    std::string& output, int& status) override;
    vessa::sal::sys::IoctlResult scsiInquiry(const std::string& device, unsigned int timeoutSeconds) override;
    vessa::sal::sys::ScsiAddressResult scsiAddress(const std::string& device) override;
    unsigned int readCapacityBlockSize(const std::string& device, bool sixteen) override;
    vessa::sal::sys::ExclusiveOpen exclusiveOpen(const std::string& device) override;
    bool privileged() override { return true; }

  private:
    std::string root_ = "/scripted";
};

// Installs a view for the lifetime of the object, then the live one again.
class ScopedView {
  public:
    explicit ScopedView(std::unique_ptr<vessa::sal::sys::View> view);
    // Replays the snapshot at `root`.
    explicit ScopedView(const std::string& root);
    ~ScopedView();
    ScopedView(const ScopedView&) = delete;
    ScopedView& operator=(const ScopedView&) = delete;
};

}  // namespace vessa::test
