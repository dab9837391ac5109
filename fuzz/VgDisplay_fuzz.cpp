// Fuzzes the vgdisplay parser on arbitrary output text.
// Seeds: tests/data/lvm/*vgdisplay* tests/scenarios/*/root/.vessa/commands/vgdisplay
#include "fuzz/FuzzSupport.h"
#include "lin/VolumeGroup.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    vessa::fuzz::parseLvmDisplay<vessa::target::lin::VolumeGroup>(vessa::fuzz::text(data, size));
    return 0;
}
