// Fuzzes the mount tables, each read from the same input: the kernel's /proc/self/mountinfo and
// /proc/swaps, which tell what is in use; the mount table (mtab) with its octal escapes, and the
// entries made of it (a device counts as readable when its name has an even length); and the
// configured table (fstab), whose mount points are asked through a scripted view in which "/" and
// "/boot" answer, so that both kinds of entry are made. Nothing here converts numbers: no parser may
// throw, and a line of any table becomes at most one record.
// Seeds: tests/data/mounts tests/scenarios/*/root/etc/*tab tests/scenarios/*/root/proc
#include <sstream>

#include "fuzz/FuzzSupport.h"
#include "lin/FsTableEntry.h"
#include "lin/InUse.h"
#include "lin/MTableEntry.h"

using vessa::fuzz::require;
using namespace vessa::target::lin;

namespace {

bool evenLength(const std::string& device) {
    return device.size() % 2 == 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vessa::fuzz::discardLog();
    vessa::test::ScriptedView& view = vessa::fuzz::scriptedView();
    view.dirs["/"] = {};
    view.dirs["/boot"] = {};
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = vessa::fuzz::text(data, size);
    const std::size_t lines = vessa::fuzz::lineCount(input);

    const auto mounts = parseMountInfo(input);
    require(mounts.size() <= lines, "at most one mount a line");
    for (const auto& m : mounts) {
        require(m.major >= 0 && m.minor >= 0, "device numbers are not negative");
        require(!m.fileSystemType.empty() && !m.source.empty(), "a mount has a type and a source");
        require(m.mountPoint.size() + m.source.size() <= input.size(), "decoding never lengthens a field");
    }

    const auto swaps = parseSwaps(input);
    require(swaps.size() <= lines, "at most one swap a line");
    for (const auto& s : swaps) {
        require(!s.path.empty() && !s.type.empty(), "a swap has a path and a type");
        require(s.path != "Filename", "the header is not a swap");
    }

    const std::list<MountLine> mtab = parseMountTable(input);
    require(mtab.size() <= lines, "at most one mount line a line");
    for (const auto& m : mtab) {
        require(!m.device.empty(), "a mount line has a device");
        require(m.device.size() + m.directory.size() + m.type.size() + m.options.size() <= input.size(),
                "decoding never lengthens a field");
    }
    std::list<MTableEntry*> entries;
    MTableEntry::parse(input, entries, evenLength);
    require(entries.size() <= mtab.size(), "at most one entry a mount line");
    for (MTableEntry* entry : entries) {
        vessa::fuzz::publishAndFree(entry);
    }

    std::list<FsTableEntry*> configured;
    FsTableEntry::parse(input, configured);
    std::size_t expected = 0;
    std::istringstream in(input);
    for (std::string line; std::getline(in, line);) {
        expected += !line.empty() && line[0] != '#';
    }
    require(configured.size() == expected, "one entry per line that is neither empty nor a comment");
    for (FsTableEntry* entry : configured) {
        require(!entry->flag() || entry->mountPoint() == "/" || entry->mountPoint() == "/boot",
                "only a mount point that answered is queried");
        vessa::fuzz::publishAndFree(entry);
    }
    return 0;
}
