#include "platform/view/Signatures.h"

#include <gtest/gtest.h>

#include <cerrno>

using vessa::sal::sys::formatSignatures;
using vessa::sal::sys::parseSignatures;
using vessa::sal::sys::Signature;
using vessa::sal::sys::SignatureProbe;

namespace {

std::string describe(const SignatureProbe& p) {
    std::string out = std::to_string(p.state) + " " + std::to_string(p.err) + " part[" + p.partUuid + "|" +
                      p.partName + "]";
    for (const Signature& s : p.found) {
        out += " {" + s.type + "|" + s.usage + "|" + s.label + "|" + s.uuid + "|" + s.version + "}";
    }
    return out;
}

// What capture writes, replay reads back as it was: labels may hold blanks, tabs, backslashes and
// newlines, a partition entry may come without a signature, a failure keeps its errno.
TEST(Signatures, RecordingReadsBackAsItWasWritten) {
    SignatureProbe labels;
    labels.state = SignatureProbe::Read;
    labels.found = {{"ext4", "filesystem", "my data\tnew\\old\nline", "0d6f", "1.0"},
                    {"gpt", "partition table", "", "6a0e", ""}};
    labels.partUuid = "1e2d";
    labels.partName = "data part";
    SignatureProbe partOnly;
    partOnly.state = SignatureProbe::Read;
    partOnly.partName = "p";
    SignatureProbe failed;
    failed.state = SignatureProbe::Failed;
    failed.err = ENOMEDIUM;
    for (const SignatureProbe& p : {labels, partOnly, failed, SignatureProbe()}) {
        const std::string text = formatSignatures(p);
        EXPECT_EQ(describe(text.empty() ? SignatureProbe() : parseSignatures(text)), describe(p)) << text;
    }
}

// Text that is no recording is a failed read, never an empty (blank) device.
TEST(Signatures, ForeignTextIsAFailureNotABlankDevice) {
    for (const char* text : {"", "ok\n", "TYPE=ext4\n", "error x\n"}) {
        const SignatureProbe p = parseSignatures(text);
        EXPECT_EQ(p.state, SignatureProbe::Failed) << text;
        EXPECT_NE(p.err, 0) << text;
    }
}

}  // namespace
