#include "lin/Completeness.h"

#include <map>

#include "lin/ProcPartition.h"

namespace vessa::target::lin {

namespace {

using Outcome = sal::sys::RunOutcome;

// What each tool's silence may hide.
const std::map<std::string, const char*> kToolLoss = {
    {"dmsetup", "multipath devices and device-mapper relations may be missing"},
    {"pvdisplay", "volume-group members may be missing"},
    {"vgdisplay", "volume-group members may be missing"},
    {"lvdisplay", "logical volumes may be missing"},
    {"file", "devices holding a file system without a partition table may not be marked partitioned"},
};

std::string how(const sal::sys::RunScope::Command& c) {
    switch (c.outcome) {
        case Outcome::NotStarted:
            return " could not be run";
        case Outcome::TimedOut:
            return " did not finish in time and was ended";
        case Outcome::TooMuchOutput:
            return " wrote more than is read and was ended";
        case Outcome::Exited:
            break;
    }
    return " failed (status " + std::to_string(c.status) + ")";
}

bool failed(const sal::sys::RunScope::Command& c) {
    return c.outcome != Outcome::Exited || (c.status != 0 && c.outputBytes == 0);
}

// Whether the kernel can have device-mapper devices: it lists the driver, or such a device exists.
bool hasDeviceMapper(const std::list<ProcPartition*>& procPartitions) {
    std::string devices;
    if (sal::sys::current().readFile("/proc/devices", devices) &&
        devices.find(" device-mapper\n") != std::string::npos) {
        return true;
    }
    for (const ProcPartition* p : procPartitions) {
        if (p->name().compare(0, 3, "dm-") == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace

std::vector<std::string> watchedSources() {
    return {"/proc/partitions", "/etc/mtab", "/etc/fstab"};
}

std::vector<std::string> completenessWarnings(const sal::sys::RunScope& scope,
                                              const std::vector<DiscoveryReport::Failure>& failures,
                                              const std::list<ProcPartition*>& procPartitions) {
    sal::sys::View& view = sal::sys::current();
    std::vector<std::string> warnings;
    if (!view.privileged()) {
        warnings.emplace_back(
            "not running as root: devices could not be opened; mounted devices may be missing their "
            "exclusions");
    }
    if (scope.wasUnreadable("/proc/partitions")) {
        warnings.emplace_back("/proc/partitions could not be read: devices may be missing");
    }
    std::vector<sal::sys::DirEntry> entries;
    if (!view.listDirectory("/sys/block", entries)) {
        warnings.emplace_back(
            "/sys/block could not be listed: device attributes and partitions may be missing");
    }
    if (scope.wasUnreadable("/etc/mtab")) {
        warnings.emplace_back("/etc/mtab could not be read: mounted devices may be missing their exclusions");
    }
    sal::sys::FileStatus st;
    if (scope.wasUnreadable("/etc/fstab") && view.status("/etc/fstab", st)) {
        warnings.emplace_back("/etc/fstab could not be read: configured file systems may be missing");
    }
    bool dmChecked = false, dm = false;
    std::map<std::string, bool> said;
    for (const sal::sys::RunScope::Command& c : scope.commands()) {
        auto loss = kToolLoss.find(c.program);
        if (loss == kToolLoss.end() || !failed(c) || said[c.program]) {
            continue;
        }
        if (c.program == "dmsetup") {
            if (!dmChecked) {
                dm = hasDeviceMapper(procPartitions);
                dmChecked = true;
            }
            if (!dm) {
                continue;  // a kernel without device-mapper has nothing for it to report
            }
        }
        said[c.program] = true;
        warnings.push_back(c.program + how(c) + ": " + loss->second);
    }
    for (const DiscoveryReport::Failure& f : failures) {
        warnings.push_back(f.source + " could not be read to its end (" + f.reason +
                           "): devices may be missing or lack exclusions");
    }
    return warnings;
}

}  // namespace vessa::target::lin
