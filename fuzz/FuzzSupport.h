// What the fuzz targets share: the input as text, a log that formats every line and throws it away,
// and the one parser target for the three LVM displays.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <map>
#include <ostream>
#include <streambuf>
#include <string>

#include "platform/Log.h"
#include "platform/Str.h"
#include "target/Property.h"
#include "target/Storage.h"

namespace vessa::fuzz {

inline std::string text(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

// Logging on, so that the lines the parsers write are formatted as in a real run.
inline void discardLog() {
    struct Null : std::streambuf {
        int overflow(int c) override { return c; }
    };
    static Null buffer;
    static std::ostream stream(&buffer);
    vessa::log::setStream(&stream);
}

// Parses `input` with `T::parse`, publishes every record and frees it. Text that is not a number
// where one is needed throws the conversion exception, which is an answer; anything else escaping
// is a fault for the fuzzer to report.
template <class T>
void parseLvmDisplay(const std::string& input) {
    std::list<T*> records;
    try {
        T::parse(input, records);
    } catch (const vessa::util::str::Exception&) {
    }
    for (T* record : records) {
        if (record->name().empty()) {
            std::abort();  // a record is only made for a name
        }
        std::map<std::string, vessa::target::Property> properties;
        record->addProperties("fuzz ", properties);
        vessa::target::Storage::exclusions ex = 0;
        record->getExclusions(ex);
        delete record;
    }
}

}  // namespace vessa::fuzz
