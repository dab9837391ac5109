// What the fuzz targets share: the input as text, a log that formats every line and throws it away,
// a scripted system view, an invariant check that names what broke, and a record published as a run
// publishes it.
//
// Every target begins with a "// Seeds:" line: the files or folders (globs, from the repository's
// top) whose files seed its corpus. `tools/dev fuzz` gathers them, with fuzz/corpus/<Name>/ (inputs
// that once found a fault), into a fresh directory per run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>

#include "platform/Log.h"
#include "platform/Str.h"
#include "platform/view/SystemView.h"
#include "support/ScriptedView.h"
#include "target/Property.h"
#include "target/Storage.h"

namespace vessa::fuzz {

inline std::string text(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

// Logging on, so that the lines the parsers write are formatted as in a real run. Cheap enough to call
// for every input.
inline void discardLog() {
    struct Null : std::streambuf {
        int overflow(int c) override { return c; }
    };
    static Null buffer;
    static std::ostream stream(&buffer);
    vessa::log::setStream(&stream);
}

// A broken invariant is a finding: say which, then abort so that the fuzzer keeps the input.
inline void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "invariant broken: %s\n", what);
        std::abort();
    }
}

// Installs a fresh scripted view (nothing exists, nothing runs) and returns it for the target to fill;
// it stays installed until the next call. Nothing a target does reaches this machine.
inline vessa::test::ScriptedView& scriptedView() {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    vessa::test::ScriptedView& ref = *view;
    vessa::sal::sys::install(std::move(view));
    return ref;
}

// The lines std::getline reads from `s`.
inline std::size_t lineCount(const std::string& s) {
    std::size_t n = 0;
    for (std::string::size_type start = 0; start < s.size(); ++n) {
        const std::string::size_type nl = s.find('\n', start);
        start = nl == std::string::npos ? s.size() : nl + 1;
    }
    return n;
}

// Asks a record for its exclusions and properties, as a run does.
template <class T>
void publish(T& record) {
    vessa::target::Storage::exclusions ex = 0;
    record.getExclusions(ex);
    std::map<std::string, vessa::target::Property> properties;
    record.addProperties("fuzz ", properties);
}

// Publishes a record, then frees it.
template <class T>
void publishAndFree(T* record) {
    publish(*record);
    delete record;
}

}  // namespace vessa::fuzz
