// What a discovery run could not see, in words, judged from what its sources came to.
//
// A source counts as not seen when the machine has something for it to report and it did not: the
// run was not privileged (devices cannot be opened, the volume tools refuse), a tool could not be run,
// was ended, or failed (a non-zero status with no output), a table could not be read, a reader stopped
// on data it could not understand. The device-mapper tool failing on a kernel without device-mapper
// misses nothing, and neither does a configured-file-system table that does not exist.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "platform/view/RunScope.h"
#include "target/DiscoveryReport.h"

namespace vessa::target::lin {

class ProcPartition;

// The files whose failure to read completenessWarnings() tells: the run's scope watches them.
std::vector<std::string> watchedSources();

// The warnings of a run made in `scope`, whose partition list is `procPartitions` and whose readers
// stopped as `failures` say. Asks the system view a few more questions (privileges, whether the
// kernel has device-mapper) but logs nothing.
std::vector<std::string> completenessWarnings(const sal::sys::RunScope& scope,
                                              const std::vector<DiscoveryReport::Failure>& failures,
                                              const std::list<ProcPartition*>& procPartitions);

}  // namespace vessa::target::lin
