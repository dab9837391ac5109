// The words of vessa-storage's help and usage errors that are not tied to one option.
#pragma once

#include <string>
#include <vector>

namespace vessa::cli {

// The candidate nearest to `word` (edit distance, at most a third of the word's length and at least
// one), or "" when none is near enough to be what was meant: "lst" -> "list", "--jsn" -> "--json".
std::string nearest(const std::string& word, const std::vector<std::string>& candidates);

// The ten exclusion letters and what sets each, for --help.
std::string exclusionHelp();

}  // namespace vessa::cli
