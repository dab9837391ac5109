// Fuzzes the pvdisplay parser on arbitrary output text.
// Seeds: tests/data/lvm/*pvdisplay* tests/scenarios/*/root/.vessa/commands/pvdisplay
#include "fuzz/FuzzSupport.h"
#include "lin/PhysicalVolume.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vessa::fuzz::parseLvmDisplay<vessa::target::lin::PhysicalVolume>(vessa::fuzz::text(data, size));
    return 0;
}
