#include "lin/ProbePlan.h"

#include <algorithm>
#include <unordered_map>

#include "lin/DeviceLink.h"
#include "lin/FsTableEntry.h"
#include "lin/ProcPartition.h"
#include "lin/SysBlock.h"
#include "platform/view/RunScope.h"
#include "platform/view/SystemView.h"

namespace vessa::target::lin {

namespace {

std::string firstWord(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t\n");
    if (begin == std::string::npos) {
        return "";
    }
    return text.substr(begin, text.find_first_of(" \t\n", begin) - begin);
}

class Plan {
  public:
    // The entry of `link`'s device, made on first mention, in order.
    sal::sys::DeviceProbes* of(const DeviceLink* link) {
        if (link->procPartition()->isPseudo()) {
            return nullptr;
        }
        auto it = at_.find(link);
        if (it == at_.end()) {
            it = at_.emplace(link, probes_.size()).first;
            probes_.push_back({link->name(), false, false, ""});
        }
        return &probes_[it->second];
    }
    void below(const DeviceLink* link) {
        for (const auto* list : {&link->partitions, &link->holders}) {
            for (const DeviceLink* child : *list) {
                if (auto* p = of(child); p != nullptr && !p->scsi) {
                    p->scsi = true;
                    below(child);
                }
            }
        }
    }
    std::vector<sal::sys::DeviceProbes> probes_;

  private:
    std::unordered_map<const DeviceLink*, std::size_t> at_;
};

bool carriesMount(const DeviceLink* link) {
    return !link->mTableEntries.empty() ||
           std::any_of(link->fsTableEntries.begin(), link->fsTableEntries.end(),
                       [](const FsTableEntry* f) { return f->flag(); });
}

}  // namespace

std::vector<std::string> planEarlyProbes(const std::list<ProcPartition*>& partitions,
                                         const std::list<SysBlock*>& sysBlocks, Storage::storageType type,
                                         bool exclusive, unsigned int inquiryTimeout) {
    sal::sys::View& view = sal::sys::current();
    std::vector<std::string> warnings;
    std::vector<std::string> alone;
    for (const ProcPartition* p : partitions) {
        if (p->isPseudo()) {
            continue;
        }
        std::string state;
        if (!view.readFile("/sys/block/" + sal::sys::sysfsName(p->name()) + "/device/state", state)) {
            continue;  // no transport state to tell (not a SCSI device)
        }
        state = firstWord(state);
        if (!state.empty() && state != "running") {
            alone.push_back(p->name());
            warnings.push_back(p->name() + ": its path is not running (state " + state +
                               "): it was sent no SCSI command and counts as not seen");
        }
    }
    sal::sys::RunScope::leaveAlone(alone);

    std::vector<sal::sys::DeviceProbes> probes;
    const bool open = exclusive && view.privileged();
    std::unordered_map<std::string, std::string> diskOf;
    for (const SysBlock* s : sysBlocks) {
        for (const SysBlock* part : s->partitions()) {
            diskOf.emplace(sal::sys::fromSysfsName(part->name()), sal::sys::fromSysfsName(s->name()));
        }
    }
    for (const ProcPartition* p : partitions) {
        if (!p->isPseudo()) {
            probes.push_back({p->name(), false, open, ""});
            probes.back().signatures = true;
            if (const auto disk = diskOf.find(p->name()); disk != diskOf.end()) {
                probes.back().disk = disk->second;
            }
        }
    }
    if ((type & Storage::discoveredBlockDevice) != 0) {
        // A device-mapper device's path is its map's name, known only from dmsetup: left to the full plan.
        for (const SysBlock* s : sysBlocks) {
            if (s->partitions().empty() && s->holders().empty() && s->name().rfind("dm-", 0) != 0) {
                const std::string name = sal::sys::fromSysfsName(s->name());
                probes.push_back({name, true, false, "/dev/" + name});
            }
        }
    }
    sal::sys::RunScope::probeAhead(probes, inquiryTimeout);
    return warnings;
}

void planProbes(const std::list<DeviceLink*>& roots, const std::list<DeviceLink*>& allLinks,
                Storage::storageType type, bool exclusive, unsigned int inquiryTimeout) {
    sal::sys::View& view = sal::sys::current();
    Plan plan;
    for (const DeviceLink* root : roots) {
        if ((type & Storage::discoveredBlockDevice) != 0) {
            if (auto* p = plan.of(root)) {
                p->scsi = true;
                if (root->partitions.empty()) {
                    p->contentPath = root->devicePath();
                }
            }
        }
        if ((type & Storage::logicalStorageMask) != 0) {
            plan.below(root);
        }
    }
    if ((type & Storage::fileSystemStorage) != 0) {
        for (const DeviceLink* l : allLinks) {
            if (carriesMount(l)) {
                if (auto* p = plan.of(l)) {
                    p->scsi = true;
                }
            }
        }
    }
    for (const DeviceLink* l : allLinks) {
        if (auto* p = plan.of(l)) {
            p->exclusive = exclusive && view.privileged();
            p->signatures = true;
        }
    }
    for (const DeviceLink* l : allLinks) {
        for (const DeviceLink* part : l->partitions) {
            if (auto* p = plan.of(part)) {
                p->disk = l->name();
            }
        }
    }
    sal::sys::RunScope::probeAhead(plan.probes_, inquiryTimeout);
}

}  // namespace vessa::target::lin
