// Fuzzes the listing tool's version-136 parser: every line one storage item, or the conversion
// exception for a line whose numbers do not convert (then the lines before it stay).
// Seeds: fuzz/corpus/KorvoListing
#include <sstream>

#include "fuzz/FuzzSupport.h"
#include "target/Host.h"

using vessa::fuzz::require;
using vessa::target::Storage;

namespace {

vessa::fuzz::LocalAgent local;
std::size_t progressCalls = 0;

void countProgress(int percent, std::string) {
    require(percent == 95, "one progress report per item, at 95");
    ++progressCalls;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vessa::fuzz::discardLog();
    local = vessa::fuzz::localAgent();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = vessa::fuzz::text(data, size);
    local.view->ran.clear();
    vessa::target::Host host(*local.agent);
    // Half the inputs come from a host of the other separator convention.
    host.parseHostInfo(size % 2 ? "build.os=win" : "build.os=linux");
    std::istringstream listing(input);
    const Storage::storageType type = Storage::allStorage;
    vessa::target::Host::callback progress = countProgress;
    progressCalls = 0;
    bool threw = false;
    try {
        host.parseOldKorvoListing(listing, type, progress);
    } catch (const vessa::util::str::Exception&) {
        threw = true;
    }
    const std::size_t lines = vessa::fuzz::lineCount(input);
    const std::size_t items = host.storage().size();
    require(threw ? items < lines : items == lines, "every line read is one item");
    require(progressCalls == items, "one progress report per item");
    for (Storage* item : host.storage()) {
        std::ostringstream xml;  // printing reads every field
        item->print(xml);
    }
    return 0;
}
