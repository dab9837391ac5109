#include "target/HostDescription.h"

#include <sstream>

#include "platform/Str.h"

namespace vessa::target {

namespace {

// The value of `key` in an os-release text (KEY=value, the value optionally in quotes).
std::string osReleaseValue(const std::string& text, const std::string& key) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, key.size() + 1, key + "=") != 0) {
            continue;
        }
        std::string value = util::str::trim(line.substr(key.size() + 1));
        if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
            value.back() == value.front()) {
            value = value.substr(1, value.size() - 2);
        }
        return value;
    }
    return "";
}

// The first "field : value" line of /proc/cpuinfo whose field is one of `fields` (in the file's
// order), and the number of "processor" lines.
std::string cpuField(const std::string& text, std::initializer_list<const char*> fields, long& processors) {
    std::istringstream in(text);
    std::string found;
    processors = 0;
    for (std::string line; std::getline(in, line);) {
        const std::string::size_type colon = line.find(':');
        if (colon == std::string::npos) {
            continue;
        }
        const std::string name = util::str::trim(line.substr(0, colon));
        if (name == "processor") {
            ++processors;
        }
        for (const char* f : fields) {
            if (found.empty() && name == f) {
                found = util::str::trim(line.substr(colon + 1));
            }
        }
    }
    return found;
}

std::string oneLine(std::string value) {
    for (char& c : value) {
        if (c == '\n' || c == '\r') {
            c = ' ';
        }
    }
    return value;
}

bool is64Bit(const std::string& machine) {
    return machine.find("64") != std::string::npos || machine == "s390x";
}

}  // namespace

std::string hostDescription(const LocalFacts& facts) {
    std::string osName = osReleaseValue(facts.osRelease, "PRETTY_NAME");
    if (osName.empty()) {
        osName = osReleaseValue(facts.osRelease, "NAME");
    }
    if (osName.empty()) {
        osName = facts.sysname;
    }
    long processors = 0;
    std::string cpuName =
        cpuField(facts.cpuInfo, {"model name", "cpu model", "Model", "cpu", "uarch"}, processors);
    if (cpuName.empty()) {
        cpuName = facts.machine;
    }
    const long count = processors > 0 ? processors : facts.onlineCpus;
    std::ostringstream out;
    out << "vltt.version=" << oneLine(facts.version) << '\n'
        << "vltt.installdir=" << oneLine(facts.installDir) << '\n'
        << "build.os=" << oneLine(facts.buildOs) << '\n'
        << "build.cpu=" << oneLine(facts.buildCpu) << '\n'
        << "os.name=" << oneLine(osName) << '\n'
        << "os.version=" << oneLine(facts.release) << '\n'
        << "os.bits=" << (is64Bit(facts.machine) ? 64 : 32) << '\n'
        << "cpu.name=" << oneLine(cpuName) << '\n'
        << "cpu.count=" << count << '\n';
    return out.str();
}

}  // namespace vessa::target
