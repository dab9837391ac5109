// What the fuzz targets share: the input as text, a log that formats every line and throws it away,
// a scripted system view, an invariant check that names what broke, and the one parser target for the
// three LVM displays.
//
// Every target begins with a "// Seeds:" line: the files or folders (globs, from the repository's
// top) whose files seed its corpus. `tools/dev fuzz` gathers them, with fuzz/corpus/<Name>/ (inputs
// that once found a fault), into a fresh directory per run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <list>
#include <map>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>

#include "platform/Log.h"
#include "platform/Str.h"
#include "platform/hax/Hax.h"
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

// For targets that parse what a host says of itself: the local agent over a fresh scripted view, in
// which the launcher has no recording, so that a Host made from it learns nothing by itself. Made
// once per process and kept to its end.
struct LocalAgent {
    vessa::test::ScriptedView* view = nullptr;
    vessa::hax::Host* agent = nullptr;
};
inline LocalAgent localAgent() {
    LocalAgent local;
    local.view = &scriptedView();
    local.agent = new vessa::hax::Host(vessa::hax::Host::named("127.0.0.1", false));
    return local;
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

// Asks a record for its exclusions and properties, as a run does, then frees it.
template <class T>
void publishAndFree(T* record) {
    vessa::target::Storage::exclusions ex = 0;
    record->getExclusions(ex);
    std::map<std::string, vessa::target::Property> properties;
    record->addProperties("fuzz ", properties);
    delete record;
}

// Parses `input` with `T::parse`, publishes every record and frees it. Text that is not a number
// where one is needed throws the conversion exception, which is an answer; anything else escaping
// is a fault for the fuzzer to report.
template <class T>
void parseLvmDisplay(const std::string& input) {
    discardLog();
    std::list<T*> records;
    try {
        T::parse(input, records);
    } catch (const vessa::util::str::Exception&) {
    }
    for (T* record : records) {
        require(!record->name().empty(), "a record is only made for a name");
        publishAndFree(record);
    }
}

}  // namespace vessa::fuzz
