// Fuzzes the host-description parser: the environment tool's "key=value" lines.
// Seeds: fuzz/corpus/HostInfo
#include "fuzz/FuzzSupport.h"
#include "target/Host.h"

using vessa::fuzz::require;

namespace {

vessa::fuzz::LocalAgent local;

bool trimmed(const std::string& s) {
    return s == vessa::util::str::trim(s);
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
    return 0;
}
