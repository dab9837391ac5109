// Fuzzes the reader of recorded signature probes (a snapshot's .vessa/ioctl/<name>.signatures): any
// text gives a probe, and what the reader made is written back as text that reads as the same probe,
// so a capture of a replayed machine records what the replay saw.
// Seeds: tests/scenarios/*/root/.vessa/ioctl/*.signatures
#include "fuzz/FuzzSupport.h"
#include "platform/view/Signatures.h"

using vessa::fuzz::require;
using vessa::sal::sys::SignatureProbe;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const SignatureProbe first = vessa::sal::sys::parseSignatures(vessa::fuzz::text(data, size));
    require(first.state != SignatureProbe::NotRead, "a recording always says whether the device was read");
    require(first.state == SignatureProbe::Read || first.err > 0, "a failed probe has an error number");
    const std::string written = vessa::sal::sys::formatSignatures(first);
    const SignatureProbe again = vessa::sal::sys::parseSignatures(written);
    require(vessa::sal::sys::formatSignatures(again) == written, "a probe reads back as it was written");
    for (const auto& s : first.found) {
        require(!s.type.empty(), "every signature has a type");
    }
    return 0;
}
