// Fuzzes the kernel partition list parser: a header naming the columns, then one entry per line; and
// one line read with the fixed columns of the /sys/block fallback.
// Seeds: tests/data/partitions tests/scenarios/*/root/proc/partitions
#include <set>

#include "fuzz/FuzzSupport.h"
#include "lin/ProcPartition.h"

using vessa::fuzz::require;
using vessa::target::lin::ProcPartition;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vessa::fuzz::discardLog();
    const std::string input = vessa::fuzz::text(data, size);
    const std::string header = input.substr(0, input.find('\n'));
    for (const std::string& token : vessa::target::lin::blankTokens(header)) {
        require(!token.empty() && token.find(' ') == std::string::npos, "a token is blank-free text");
    }

    std::list<ProcPartition*> entries;
    std::set<std::string> names;
    try {
        ProcPartition::parse(input, entries, names);
    } catch (const vessa::util::str::Exception&) {
    }
    // The header makes no entry; every other line at most one, valid and named.
    require(entries.size() < vessa::fuzz::lineCount(input) || entries.empty(), "at most one entry a line");
    for (ProcPartition* entry : entries) {
        require(entry->valid() && !entry->name().empty(), "only valid, named entries are kept");
        require(entry->isPseudo() || (entry->major() >= 0 && entry->minor() >= 0), "numbers not negative");
        require(names.count(entry->name()) == 1, "every kept name is recorded");
        vessa::fuzz::publish(*entry);
        delete entry;
    }

    try {
        ProcPartition fixed(header, 0, 1, 2, 3);
        require(!fixed.valid() || !fixed.name().empty(), "a valid entry has a name");
        vessa::fuzz::publish(fixed);
    } catch (const vessa::util::str::Exception&) {
    }
    return 0;
}
