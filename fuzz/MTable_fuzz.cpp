// Fuzzes the mount-table (mtab) parsers: the lines with their octal escapes, and the entries made of
// them (a device counts as readable when its name has an even length).
// Seeds: tests/data/mounts tests/scenarios/*/root/etc/mtab
#include "fuzz/FuzzSupport.h"
#include "lin/MTableEntry.h"

using vessa::fuzz::require;
using vessa::target::lin::MTableEntry;

namespace {

bool evenLength(const std::string& device) {
    return device.size() % 2 == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vessa::fuzz::discardLog();
    const std::string input = vessa::fuzz::text(data, size);
    // Nothing here converts numbers: no exception is an answer.
    const std::list<vessa::target::lin::MountLine> lines = vessa::target::lin::parseMountTable(input);
    require(lines.size() <= vessa::fuzz::lineCount(input), "at most one mount line a line");
    for (const auto& m : lines) {
        require(!m.device.empty(), "a mount line has a device");
        require(m.device.size() + m.directory.size() + m.type.size() + m.options.size() <= input.size(),
                "decoding never lengthens a field");
    }

    std::list<MTableEntry*> entries;
    MTableEntry::parse(input, entries, evenLength);
    require(entries.size() <= lines.size(), "at most one entry a mount line");
    for (MTableEntry* entry : entries) {
        vessa::fuzz::publishAndFree(entry);
    }
    return 0;
}
