// Fuzzes the configured-table (fstab) parser. Mount points are asked through a scripted view in which
// "/" and "/boot" answer, so that both kinds of entry are made.
// Seeds: tests/data/mounts tests/scenarios/*/root/etc/fstab
#include <sstream>

#include "fuzz/FuzzSupport.h"
#include "lin/FsTableEntry.h"

using vessa::fuzz::require;
using vessa::target::lin::FsTableEntry;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vessa::fuzz::discardLog();
    vessa::test::ScriptedView& view = vessa::fuzz::scriptedView();
    view.dirs["/"] = {};
    view.dirs["/boot"] = {};
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = vessa::fuzz::text(data, size);
    // Nothing here converts numbers: no exception is an answer.
    std::list<FsTableEntry*> entries;
    FsTableEntry::parse(input, entries);

    std::size_t configured = 0;
    std::istringstream in(input);
    for (std::string line; std::getline(in, line);) {
        configured += !line.empty() && line[0] != '#';
    }
    require(entries.size() == configured, "one entry per line that is neither empty nor a comment");
    for (FsTableEntry* entry : entries) {
        require(!entry->flag() || entry->mountPoint() == "/" || entry->mountPoint() == "/boot",
                "only a mount point that answered is queried");
        vessa::fuzz::publishAndFree(entry);
    }
    return 0;
}
