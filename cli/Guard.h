// `vessa-storage check` and `guard`: a device named the way scripts name it, and the hold on it while a
// command runs.
//
// Between deciding that a device is free and writing to it, another program can claim it (a mount,
// an assembly, a volume scan). The guard closes that gap: it opens each device exclusively (O_EXCL,
// which the kernel refuses to anyone else who asks for it, and which a device already claimed refuses
// to us), and takes flock(LOCK_EX) on the whole-disk node, the lock udev honours before it probes a
// disk, so that no rule acts on a disk half-written. Both are held while the command runs.
#pragma once

#include <string>
#include <vector>

#include "target/Host.h"

namespace vessa::cli {

// The kernel name of the device that `name` names: a node or link below /dev ("/dev/sdb",
// "/dev/disk/by-id/...", "/dev/mapper/mpatha"), a kernel name ("sdb") or "MAJOR:MINOR". Links are
// followed through the system view (so that a snapshot answers too). "" when it names no device.
std::string kernelNameOf(const std::string& name);

// The item of `host` (a block device or logical device, not a file system) whose device that is, or
// nullptr.
vessa::target::Storage* itemOf(vessa::target::Host& host, const std::string& name);

// Holds the devices (kernel names) and runs `command` with the caller's standard streams; returns its
// exit status (128 + the signal that ended it). Throws std::runtime_error, with the device and the
// reason, when a device cannot be held; nothing is run then.
int holdAndRun(const std::vector<std::string>& kernelNames, const std::vector<std::string>& command);

}  // namespace vessa::cli
