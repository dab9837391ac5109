// The generated SAN snapshot the micro-benchmarks replay: bench/san_snapshot.py with `luns` LUNs and
// seed 1, written once under the temporary directory and kept for later runs ("<dir>/.made" marks a
// finished one).
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/Process.h"

namespace vessa::bench {

inline std::string sanSnapshot(int luns) {
    const std::string dir =
        (std::filesystem::temp_directory_path() / ("vessa-bench-san-" + std::to_string(luns))).string();
    if (!std::filesystem::exists(dir + "/.made")) {
        std::string out;
        vessa::sal::exec::runCaptured("python3",
                                      {std::string(VESSA_SOURCE_DIR) + "/bench/san_snapshot.py", dir,
                                       "--luns", std::to_string(luns), "--seed", "1"},
                                      out);
        std::filesystem::create_directories(dir);
        std::ofstream(dir + "/.made");
    }
    return dir;
}

}  // namespace vessa::bench
