// What a run is going to ask of its devices, told to the system view before the run asks, and the
// devices it must not ask at all.
//
// A device whose transport path is not running (sysfs device/state other than "running": "blocked",
// "transport-offline", "offline") does not answer a SCSI command until the transport gives up on it,
// which takes seconds to minutes. Such a device is sent nothing: its probes fail at once, and it is
// named in a warning, so the run counts as not having seen everything.
//
// The plan covers the devices the conversion reaches: the roots (with the content test for those
// without partitions), what lies below them through partitions and holders, and devices that carry a
// mount; every device's signatures; and, when the in-use test is wanted and devices can be opened,
// every device's exclusive open.
// A device the plan misses is still probed when the run asks; one it names needlessly costs a probe.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "target/Storage.h"

namespace vessa::target::lin {

class DeviceLink;
class ProcPartition;
class SysBlock;

// Made as soon as the kernel's lists are read, while the device-mapper and volume tools are still
// running (on a host with thousands of paths each of them reads every device, and the probes would
// otherwise wait for the slowest): tells the current run scope which devices to leave alone, reading
// each one's state through the system view, and asks ahead what the run will surely want: every
// device's exclusive open (`exclusive`, when devices can be opened) and signatures, and the content
// test and SCSI probes of every whole device that has no partitions and nothing built on it. Returns
// the warnings for the devices left alone.
std::vector<std::string> planEarlyProbes(const std::list<ProcPartition*>& partitions,
                                         const std::list<SysBlock*>& sysBlocks, Storage::storageType type,
                                         bool exclusive, unsigned int inquiryTimeout);

// Asks ahead, once the devices are joined, the probes of everything the conversion reaches; what the
// early plan asked already is not asked again.
void planProbes(const std::list<DeviceLink*>& roots, const std::list<DeviceLink*>& allLinks,
                Storage::storageType type, bool exclusive, unsigned int inquiryTimeout);

}  // namespace vessa::target::lin
