#include "platform/view/ProbingView.h"

#include <set>

namespace vessa::sal::sys {

ProbingView::ProbingView(std::unique_ptr<View> inner, std::function<void()> prepare, ProbePool::Prober prober,
                         std::size_t helpers)
    : inner_(std::move(inner)), prepare_(std::move(prepare)), prober_(std::move(prober)), helpers_(helpers) {
    if (!prober_) {
        View* view = inner_.get();
        prober_ = [view](const ProbeRequest& r) { return probeDirectly(*view, r); };
    }
}

ProbingView::~ProbingView() {
    pool_.reset();
}

ProbeAnswer ProbingView::probeDirectly(View& view, const ProbeRequest& r) {
    ProbeAnswer a;
    switch (r.kind) {
        case ProbeKind::Inquiry:
            a.ioctl = view.scsiInquiry(r.device, r.timeoutSeconds);
            break;
        case ProbeKind::Address:
            a.address = view.scsiAddress(r.device);
            break;
        case ProbeKind::Capacity10:
        case ProbeKind::Capacity16:
            a.blockSize = view.readCapacityBlockSize(r.device, r.kind == ProbeKind::Capacity16);
            break;
        case ProbeKind::Content:
            a.outcome = view.describeContent(r.device, a.text, a.status);
            break;
        case ProbeKind::Exclusive:
            a.exclusive = view.exclusiveOpen(r.device);
            break;
        case ProbeKind::Signatures:
            if (r.content.empty()) {
                a.signatures = view.readSignatures(r.device);
            } else {
                a.signatures =
                    view.readSignaturesWithContent(r.device, r.content, a.outcome, a.text, a.status);
            }
            break;
    }
    return a;
}

ProbePool& ProbingView::pool() {
    std::lock_guard<std::mutex> lock(m_);
    return poolLocked();
}

ProbePool& ProbingView::poolLocked() {
    if (!pool_) {
        if (prepare_) {
            prepare_();
        }
        ProbePool::reap(stuck_);
        pool_ = std::make_unique<ProbePool>(prober_, helpers_);
    }
    return *pool_;
}

ProbeAnswer ProbingView::ask(ProbeKind kind, const std::string& device, unsigned int timeoutSeconds) {
    ProbeRequest r;
    r.kind = kind;
    r.device = device;
    r.timeoutSeconds = timeoutSeconds;
    return pool().ask(r);
}

RunOutcome ProbingView::describeContent(const std::string& path, std::string& output, int& status) {
    ProbeAnswer a = ask(ProbeKind::Content, path, inquiryTimeout_);
    if (!a.answered || a.outcome != RunOutcome::Exited) {
        return a.answered ? a.outcome : RunOutcome::NotStarted;
    }
    status = a.status;
    output += a.text;
    return RunOutcome::Exited;
}

IoctlResult ProbingView::scsiInquiry(const std::string& device, unsigned int timeoutSeconds) {
    return ask(ProbeKind::Inquiry, device, timeoutSeconds).ioctl;
}

ScsiAddressResult ProbingView::scsiAddress(const std::string& device) {
    return ask(ProbeKind::Address, device, inquiryTimeout_).address;
}

unsigned int ProbingView::readCapacityBlockSize(const std::string& device, bool sixteen) {
    return ask(sixteen ? ProbeKind::Capacity16 : ProbeKind::Capacity10, device, kReadCapacityTimeoutSeconds)
        .blockSize;
}

ExclusiveOpen ProbingView::exclusiveOpen(const std::string& device) {
    return ask(ProbeKind::Exclusive, device, inquiryTimeout_).exclusive;
}

SignatureProbe ProbingView::readSignatures(const std::string& device) {
    return ask(ProbeKind::Signatures, device, inquiryTimeout_).signatures;
}

void ProbingView::probeAhead(const std::vector<DeviceProbes>& plan, unsigned int inquiryTimeout) {
    if (inquiryTimeout != 0) {
        inquiryTimeout_ = inquiryTimeout;
    }
    inquiryTimeout = inquiryTimeout_;
    // The run measures the disks only /sys/block lists first, then tests every device for exclusive use and
    // reads every device's signatures before it converts any, and converts each with its content test first,
    // then its INQUIRY and its address.
    std::vector<ProbeRequest> requests;
    for (const DeviceProbes& d : plan) {
        if (d.capacity) {
            requests.push_back({ProbeKind::Capacity10, d.device, kReadCapacityTimeoutSeconds});
        }
    }
    for (const DeviceProbes& d : plan) {
        if (d.exclusive) {
            requests.push_back({ProbeKind::Exclusive, d.device, inquiryTimeout, d.disk});
        }
    }
    // A device's content test is made with its signature probe, on the same reads, when the test is
    // of the device's own node.
    std::set<std::string> contentPaths;
    for (const DeviceProbes& d : plan) {
        contentPaths.insert(d.contentPath);
    }
    std::set<std::string> withSignatures;
    for (const DeviceProbes& d : plan) {
        if (d.signatures) {
            const std::string node = "/dev/" + kernelName(d.device);
            const bool both = contentPaths.count(node) != 0;
            requests.push_back({ProbeKind::Signatures, d.device, inquiryTimeout, "", both ? node : ""});
            if (both) {
                withSignatures.insert(node);
            }
        }
    }
    for (const DeviceProbes& d : plan) {
        if (!d.contentPath.empty() && withSignatures.count(d.contentPath) == 0) {
            requests.push_back({ProbeKind::Content, d.contentPath, inquiryTimeout});
        }
        if (d.scsi) {
            requests.push_back({ProbeKind::Inquiry, d.device, inquiryTimeout});
            requests.push_back({ProbeKind::Address, d.device, inquiryTimeout});
        }
    }
    if (!requests.empty()) {
        pool().ahead(requests);
    }
}

void ProbingView::runStarts() {
    std::lock_guard<std::mutex> lock(m_);
    ++runs_;
    // The helpers are forked now, while the run has started none of its threads (see ProbePool::start).
    poolLocked().start();
}

void ProbingView::runEnds() {
    std::unique_ptr<ProbePool> ended;
    {
        std::lock_guard<std::mutex> lock(m_);
        if (runs_ > 0) {
            --runs_;
        }
        if (runs_ > 0 || !pool_) {
            return;
        }
        ended = std::move(pool_);
    }
    // What the pool still had to say concerns probes the ended run did not wait for.
    std::vector<pid_t> stuck = ended->finish();
    ended.reset();
    std::lock_guard<std::mutex> lock(m_);
    stuck_.insert(stuck_.end(), stuck.begin(), stuck.end());
    inquiryTimeout_ = 1;
}

std::vector<std::string> ProbingView::takeProbeWarnings() {
    std::lock_guard<std::mutex> lock(m_);
    return pool_ ? pool_->takeWarnings() : std::vector<std::string>();
}

}  // namespace vessa::sal::sys
