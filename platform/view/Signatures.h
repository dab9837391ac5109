// What lies on a device at rest: the superblocks and partition tables on it, as libblkid finds them
// (file systems, swap, volume-manager and RAID members, encrypted volumes, partition tables), and the
// partition entry that describes it in its disk's table.
//
// Unlike the content test, which only tells whether "file" would call the device a file system, this
// names every signature, stale ones included (a RAID member whose array is gone still carries its
// superblock), so that nothing that holds data is offered for destruction as if it were blank.
//
// A snapshot keeps the answer as `.vessa/ioctl/<kernel name>.signatures` (see formatSignatures); a
// snapshot without it replays with the device's signatures not read.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "platform/Export.h"

namespace vessa::sal::sys {

struct Signature {
    std::string type;     // "ext4", "swap", "LVM2_member", "crypto_LUKS", "gpt" ...
    std::string usage;    // "filesystem", "raid", "crypto", "other", "partition table"
    std::string label;    // "" when it has none
    std::string uuid;     // "" when it has none
    std::string version;  // "" when blkid gives none
};

struct SignatureProbe {
    enum State { NotRead, Failed, Read };
    State state = NotRead;
    int err = 0;  // Failed: errno (ETIMEDOUT: the device did not answer in time)
    std::vector<Signature> found;
    // The device's own entry in its disk's partition table ("" when it is no partition or has none).
    std::string partUuid;
    std::string partName;
};

// The device's signatures, read from `path` (a device node) here, in this process; may block on a
// device that does not answer (the live view calls it on a helper process).
VESSA_API SignatureProbe probeSignatures(const std::string& path);
// The same on `fd`, a device node open for reading (left open). The first `headBytes` of the device
// (at least its first half MiB) are asked for ahead, into the cache, for a reader that reads them next.
VESSA_API SignatureProbe probeSignatures(int fd, std::size_t headBytes);

// The recording: a first line "read" or "error <errno>", then for a read device one line per
// signature, then the partition entry as a line "part" with its fields. Fields are KEY=VALUE separated
// by tabs (TYPE, USAGE, LABEL, UUID, VERSION; PARTUUID, PARTNAME), a value's backslash, tab and
// newline written "\\", "\t" and "\n". A NotRead probe is recorded as nothing.
VESSA_API std::string formatSignatures(const SignatureProbe& probe);
// Reads a recording back; text that is not one gives a Failed probe with EINVAL.
VESSA_API SignatureProbe parseSignatures(const std::string& text);

}  // namespace vessa::sal::sys
