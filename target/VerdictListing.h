// The verdicts of a host's items, as its listing tool gives them to the controller on request: a
// second document behind the version-136 listing, which itself stays as it always was.
//
//   <the listing: version line, one line per item>
//   #vessa-verdicts 1
//   w<TAB>WARNING                       what the host's run could not see, one line each
//   v[<TAB>K<TAB>REASON]...             one line per item of the listing, in its order: every reason
//                                       with its kind K (0 excluded, 1 in use, 2 holds data, 3 unknown);
//                                       "v" alone is a candidate
//
// A tab or line end inside a text is written as a blank. The controller cuts the output at the mark
// line before it parses the listing, so the listing's parser never sees the verdicts.
#pragma once

#include <list>
#include <ostream>
#include <string>
#include <vector>

#include "target/Storage.h"
#include "target/Verdict.h"

namespace vessa::target {

// The line that starts the verdicts, without its line end.
inline constexpr const char* kVerdictsMark = "#vessa-verdicts 1";

// The mark line, the warnings and one verdict line per item of `verdicts` (in the listing's order).
void writeVerdictListing(std::ostream& out, const std::vector<std::string>& warnings,
                         const std::vector<Verdict>& verdicts);

// Cuts `output` at the mark line: `output` keeps what is before it, the verdict document (without the
// mark) is returned; "" and `output` unchanged when there is no mark.
std::string cutVerdictListing(std::string& output);

// Reads a verdict document (as cutVerdictListing returns it). False when it is not one of exactly
// `items` verdicts (a line that is not understood, or another count); the outputs are then empty.
bool parseVerdictListing(const std::string& text, std::size_t items, std::vector<std::string>& warnings,
                         std::vector<Verdict>& verdicts);

}  // namespace vessa::target
