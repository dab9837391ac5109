// Fuzzes the three LVM display parsers on the same arbitrary text: pvdisplay, vgdisplay and lvdisplay
// print one form of "name value" lines, so an input that reaches deep into one is a seed for the others.
// Seeds: tests/data/lvm tests/scenarios/*/root/.vessa/commands/?vdisplay
#include <list>

#include "fuzz/FuzzSupport.h"
#include "lin/LogicalVolume.h"
#include "lin/PhysicalVolume.h"
#include "lin/VolumeGroup.h"

namespace {

// Parses `input` with `T::parse`, publishes every record and frees it. Text that is not a number
// where one is needed throws the conversion exception, which is an answer; anything else escaping
// is a fault for the fuzzer to report.
template <class T>
void parse(const std::string& input) {
    std::list<T*> records;
    try {
        T::parse(input, records);
    } catch (const vessa::util::str::Exception&) {
    }
    for (T* record : records) {
        vessa::fuzz::require(!record->name().empty(), "a record is only made for a name");
        vessa::fuzz::publishAndFree(record);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vessa::fuzz::discardLog();
    const std::string input = vessa::fuzz::text(data, size);
    parse<vessa::target::lin::PhysicalVolume>(input);
    parse<vessa::target::lin::VolumeGroup>(input);
    parse<vessa::target::lin::LogicalVolume>(input);
    return 0;
}
