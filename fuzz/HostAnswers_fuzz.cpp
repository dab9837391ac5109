// Fuzzes what a remote host answers, each read from the same input by a Host over the local agent: the
// environment tool's "key=value" lines, and the listing tool's version-136 listing, every line one
// storage item, or the conversion exception for a line whose numbers do not convert (then the lines
// before it stay). The agent's view is a fresh scripted one, in which the launcher has no recording,
// so that a Host made from it learns nothing by itself.
// Seeds: fuzz/corpus/HostAnswers
#include <sstream>

#include "fuzz/FuzzSupport.h"
#include "target/Host.h"

using vessa::fuzz::require;
using vessa::target::Host;
using vessa::target::Storage;

namespace {

vessa::test::ScriptedView* view = nullptr;
vessa::hax::Host* agent = nullptr;
std::size_t progressCalls = 0;

void countProgress(int percent, std::string) {
    require(percent == 95, "one progress report per item, at 95");
    ++progressCalls;
}

bool trimmed(const std::string& s) {
    return s == vessa::util::str::trim(s);
}

void readDescription(const std::string& input) {
    Host host(*agent);
    host.parseHostInfo(input);
    const struct {
        const char* key;
        const std::string& value;
    } fields[] = {{"vltt.version=", host.toolsVersion()},
                  {"vltt.installdir=", host.installDir()},
                  {"build.os=", host.buildOs()},
                  {"build.cpu=", host.buildCpu()},
                  {"os.name=", host.osName()},
                  {"os.version=", host.osVersion()},
                  {"os.bits=", host.osBits()},
                  {"cpu.name=", host.cpuName()},
                  {"cpu.count=", host.cpuCount()}};
    for (const auto& f : fields) {
        require(trimmed(f.value), "values are stored trimmed");
        require(f.value.empty() || input.find(f.key) != std::string::npos, "a value comes from its own key");
        require(f.value.size() < input.size() || f.value.empty(), "a value is part of the output");
    }
}

// `windows`: the listing comes from a host of the other separator convention.
void readListing(const std::string& input, bool windows) {
    Host host(*agent);
    host.parseHostInfo(windows ? "build.os=win" : "build.os=linux");
    std::istringstream listing(input);
    const Storage::storageType type = Storage::allStorage;
    Host::callback progress = countProgress;
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
}

}  // namespace

// Made once per process and kept to its end.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vessa::fuzz::discardLog();
    view = &vessa::fuzz::scriptedView();
    agent = new vessa::hax::Host(vessa::hax::Host::named("127.0.0.1", false));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = vessa::fuzz::text(data, size);
    view->ran.clear();
    readDescription(input);
    readListing(input, size % 2 != 0);  // half the inputs
    return 0;
}
