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

// Tells the current run scope which devices to leave alone and what to probe ahead; returns the
// warnings for the devices left alone. Reads each device's state through the system view.
std::vector<std::string> planProbes(const std::list<DeviceLink*>& roots,
                                    const std::list<DeviceLink*>& allLinks, Storage::storageType type,
                                    bool exclusive, unsigned int inquiryTimeout);

}  // namespace vessa::target::lin
