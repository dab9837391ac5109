// Golden files: an input (a snapshot, a tool's output) kept beside the output it must give. With
// VESSA_UPDATE_GOLDEN=1 in the environment a missing or differing expected file is written instead of
// failing, so that after a deliberate change the new outputs are regenerated and reviewed as a diff.
#pragma once

#include <string>

#include "target/Host.h"

namespace vessa::test {

// Expects `actual` to equal the whole content of `expectedPath` (a missing file fails), or rewrites it.
void expectGolden(const std::string& expectedPath, const std::string& actual);

// A log as two runs of the same snapshot write it, whatever the build: the free counts that statfs gives
// for a mount point (which move while the machine runs) and the source line that an exception names
// read "*".
std::string normalisedLog(const std::string& log);

// Every field of every item of `host`, in order, and every property as a report prints it: two runs
// that give the same text gave the same items.
std::string describeItems(vessa::target::Host& host);

}  // namespace vessa::test
