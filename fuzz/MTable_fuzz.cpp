// Fuzzes the mount-table (mtab) parsers: the lines with their octal escapes, and the entries made of
// them (a device counts as readable when its name has an even length).
// Seeds: tests/data/mounts tests/scenarios/*/root/etc/mtab
#include "fuzz/FuzzSupport.h"
#include "lin/MTableEntry.h"

using vessa::fuzz::require;
using vessa::target::lin::MTableEntry;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vessa::fuzz::discardLog();
    return 0;
}

namespace {

bool evenLength(const std::string& device) {
    return device.size() % 2 == 0;
}

bool startsWith(const std::string& s, const char* prefix) {
    return s.rfind(prefix, 0) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
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
        const std::string& type = entry->fileSystemType();
        const bool network = type.find("cifs") != std::string::npos ||
                             type.find("nfs") != std::string::npos || type.find("fuse.") != std::string::npos;
        require(startsWith(entry->deviceName(), "/dev/") || network, "a device node or a network mount");
        require(entry->flag() || startsWith(entry->deviceName(), "/dev/"),
                "only a device node is unreadable");
        vessa::target::Storage::exclusions ex = 0;
        entry->getExclusions(ex);
        std::map<std::string, vessa::target::Property> properties;
        entry->addProperties("fuzz ", properties);
        require(properties.size() == 4, "four mount properties");
        delete entry;
    }
    return 0;
}
