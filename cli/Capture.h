// What `vessa-storage capture DIR` needs besides discovery: deciding whether DIR may be written, and
// measuring what was written.
#pragma once

#include <cstdint>
#include <string>

namespace vessa::cli {

enum class TargetState { Usable, NotEmpty, NotWritable };

// Makes DIR when it does not exist (its parent must). A DIR that holds anything is refused unless
// `force`; one that cannot be made or written is NotWritable, with the reason in `why`.
TargetState prepareCaptureDir(const std::string& dir, bool force, std::string& why);

struct TreeSize {
    std::uint64_t files = 0;  // regular files and links
    std::uint64_t bytes = 0;  // their sizes (a link counts its target text)
};
TreeSize measure(const std::string& dir);

}  // namespace vessa::cli
