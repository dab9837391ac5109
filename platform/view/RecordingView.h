// A system view that answers from another view (the live machine, or a snapshot in tests) and writes
// down, as a snapshot under `dir`, everything it was asked and answered, in the format the replay
// view reads: file contents under their host paths, the names (and kinds) of listed directory
// entries, link targets that were read, the directories whose file system was queried, device nodes
// that passed the read test (non-empty), block device capacities, command outputs and statuses,
// SCSI answers, and the host name. Nothing that was not asked is written.
//
// Replaying the snapshot asks the same questions and gets the same answers, so it yields the same
// storage list. Write errors are collected, not thrown: a capture goes on and reports them at the end.
//
// Everything is written inside `dir` as replay reads it: paths are resolved under `dir` taken as "/",
// so a recorded path that runs through a symbolic link recorded earlier (an absolute one included)
// lands where replay will look for it, inside `dir`, and a link in the last place is never written
// through. `dir` is opened once, when the view is made; it must exist by then.
#pragma once

#include <memory>
#include <set>
#include <string>

#include "platform/view/RootedFiles.h"
#include "platform/view/SystemView.h"

namespace vessa::sal::sys {

class RecordingView : public View {
  public:
    RecordingView(std::unique_ptr<View> inner, std::string dir);

    const std::string& root() const override { return inner_->root(); }
    bool readFile(const std::string& path, std::string& content) override;
    bool listDirectory(const std::string& path, std::vector<DirEntry>& entries) override;
    bool status(const std::string& path, FileStatus& st) override;
    bool readLink(const std::string& path, std::string& target, std::size_t limit) override;
    bool fsStatus(const std::string& path, FsStatus& st) override;
    bool deviceReadable(const std::string& path) override;
    std::string hostName() override;
    RunOutcome run(const std::string& program, const std::list<std::string>& args, std::string& output,
                   int& status) override;
    RunOutcome describeContent(const std::string& path, std::string& output, int& status) override;
    void probeAhead(const std::vector<DeviceProbes>& plan, unsigned int inquiryTimeout) override {
        inner_->probeAhead(plan, inquiryTimeout);
    }
    void runStarts() override { inner_->runStarts(); }
    void runEnds() override { inner_->runEnds(); }
    std::vector<std::string> takeProbeWarnings() override { return inner_->takeProbeWarnings(); }
    IoctlResult scsiInquiry(const std::string& device, unsigned int timeoutSeconds) override;
    ScsiAddressResult scsiAddress(const std::string& device) override;
    unsigned int readCapacityBlockSize(const std::string& device, bool sixteen) override;
    ExclusiveOpen exclusiveOpen(const std::string& device) override;
    SignatureProbe readSignatures(const std::string& device) override;
    bool privileged() override;

    // The first write that failed, or "" (the capture is then complete).
    const std::string& firstError() const { return error_; }

  private:
    void writeFile(const std::string& hostPath, const std::string& content, bool overwrite);
    void makeDirectory(const std::string& hostPath);
    void writeRecording(const std::string& relative, const std::string& content);
    // Records a command's output and status as replay reads them.
    void recordCommand(const std::string& program, const std::list<std::string>& args,
                       const std::string& text, int status);
    void fail(const std::string& what);
    // Records the failed operation `what` on `hostPath` with the reason in errno.
    void failed(const std::string& what, const std::string& hostPath);

    std::unique_ptr<View> inner_;
    std::string dir_;
    posix::RootedFiles files_;
    std::set<std::string> links_;  // host paths recorded as symbolic links
    std::string error_;
};

}  // namespace vessa::sal::sys
