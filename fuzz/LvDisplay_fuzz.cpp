// Fuzzes the lvdisplay parser on arbitrary output text.
// Seeds: tests/data/lvm/*lvdisplay* tests/scenarios/*/root/.vessa/commands/lvdisplay
#include "fuzz/FuzzSupport.h"
#include "lin/LogicalVolume.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vessa::fuzz::parseLvmDisplay<vessa::target::lin::LogicalVolume>(vessa::fuzz::text(data, size));
    return 0;
}
