// Fuzzes the kernel tables that tell what is in use: /proc/self/mountinfo and /proc/swaps. The same
// input is read as both; neither parser may throw, and a line of either becomes at most one record.
// Seeds: tests/scenarios/*/root/proc/self/mountinfo tests/scenarios/*/root/proc/swaps tests/data/mounts
#include "fuzz/FuzzSupport.h"
#include "lin/InUse.h"

using vessa::fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vessa::fuzz::discardLog();
    const std::string input = vessa::fuzz::text(data, size);
    const std::size_t lines = vessa::fuzz::lineCount(input);

    const auto mounts = vessa::target::lin::parseMountInfo(input);
    require(mounts.size() <= lines, "at most one mount a line");
    for (const auto& m : mounts) {
        require(m.major >= 0 && m.minor >= 0, "device numbers are not negative");
        require(!m.fileSystemType.empty() && !m.source.empty(), "a mount has a type and a source");
        require(m.mountPoint.size() + m.source.size() <= input.size(), "decoding never lengthens a field");
    }

    const auto swaps = vessa::target::lin::parseSwaps(input);
    require(swaps.size() <= lines, "at most one swap a line");
    for (const auto& s : swaps) {
        require(!s.path.empty() && !s.type.empty(), "a swap has a path and a type");
        require(s.path != "Filename", "the header is not a swap");
    }
    return 0;
}
