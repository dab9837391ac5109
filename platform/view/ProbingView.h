// A view whose device probes go through a pool of helper processes (ProbePool): the SCSI INQUIRY, the
// SCSI address, READ CAPACITY, the content test and the exclusive open. Everything else is the inner
// view's. A device that does not answer in time costs one deadline, is named in a warning
// (takeProbeWarnings) and answers every later probe as failed; the process is never held by it.
//
// The probes are made by `prober` in the helpers; by default the inner view's own answers to them
// (which must then be made in that process: the live machine). The pool is started at the first probe
// and ended with the outermost run (runEnds), so that no helper outlives the run that needed it.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/view/ProbePool.h"
#include "platform/view/SystemView.h"

namespace vessa::sal::sys {

class ProbingView : public View {
  public:
    // Helper processes that run at once: measured on loop devices and on SAN paths, more than this
    // gains nothing on two processors and adds processes.
    static constexpr std::size_t kHelpers = 4;

    // `prepare` runs in this process before the first helper is started (what the helpers should
    // inherit ready-made, such as a loaded database).
    ProbingView(std::unique_ptr<View> inner, std::function<void()> prepare,
                ProbePool::Prober prober = nullptr, std::size_t helpers = kHelpers);
    ~ProbingView() override;

    const std::string& root() const override { return inner_->root(); }
    bool readFile(const std::string& path, std::string& content) override {
        return inner_->readFile(path, content);
    }
    bool readListedFile(const std::string& path, std::string& content) override {
        return inner_->readListedFile(path, content);
    }
    bool prefersListedReads() const override { return inner_->prefersListedReads(); }
    bool allowsConcurrentReads() const override { return inner_->allowsConcurrentReads(); }
    bool allowsConcurrentCommands() const override { return inner_->allowsConcurrentCommands(); }
    bool listDirectory(const std::string& path, std::vector<DirEntry>& entries) override {
        return inner_->listDirectory(path, entries);
    }
    bool entryTypes(const std::string& directory, const std::string& loweredName,
                    std::vector<DirEntry::Type>& types) override {
        return inner_->entryTypes(directory, loweredName, types);
    }
    bool status(const std::string& path, FileStatus& st) override { return inner_->status(path, st); }
    bool readLink(const std::string& path, std::string& target, std::size_t limit) override {
        return inner_->readLink(path, target, limit);
    }
    bool fsStatus(const std::string& path, FsStatus& st) override { return inner_->fsStatus(path, st); }
    bool deviceReadable(const std::string& path) override { return inner_->deviceReadable(path); }
    std::string hostName() override { return inner_->hostName(); }
    RunOutcome run(const std::string& program, const std::list<std::string>& args, std::string& output,
                   int& status) override {
        return inner_->run(program, args, output, status);
    }
    bool privileged() override { return inner_->privileged(); }

    RunOutcome describeContent(const std::string& path, std::string& output, int& status) override;
    IoctlResult scsiInquiry(const std::string& device, unsigned int timeoutSeconds) override;
    ScsiAddressResult scsiAddress(const std::string& device) override;
    unsigned int readCapacityBlockSize(const std::string& device, bool sixteen) override;
    ExclusiveOpen exclusiveOpen(const std::string& device) override;
    SignatureProbe readSignatures(const std::string& device) override;

    void probeAhead(const std::vector<DeviceProbes>& plan, unsigned int inquiryTimeout) override;
    void runStarts() override;
    void runEnds() override;
    std::vector<std::string> takeProbeWarnings() override;

    // The inner view's own answer to a probe (what a helper does by default).
    static ProbeAnswer probeDirectly(View& view, const ProbeRequest& request);

  private:
    ProbeAnswer ask(ProbeKind kind, const std::string& device, unsigned int timeoutSeconds);
    ProbePool& pool();
    ProbePool& poolLocked();  // with m_ held

    std::unique_ptr<View> inner_;
    std::function<void()> prepare_;
    ProbePool::Prober prober_;
    const std::size_t helpers_;
    std::mutex m_;
    int runs_ = 0;
    unsigned int inquiryTimeout_ = 1;  // the run's, for probes that have no timeout of their own
    std::unique_ptr<ProbePool> pool_;
    std::vector<pid_t> stuck_;  // helpers abandoned by ended pools, reaped when they end
};

}  // namespace vessa::sal::sys
