#include "cli/Capture.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace vessa::cli {

namespace fs = std::filesystem;

TargetState prepareCaptureDir(const std::string& dir, bool force, std::string& why) {
    std::error_code ec;
    if (fs::exists(dir, ec)) {
        if (!fs::is_directory(dir, ec)) {
            why = dir + " exists and is not a directory";
            return TargetState::NotWritable;
        }
        if (!force && fs::directory_iterator(dir, ec) != fs::directory_iterator()) {
            why = dir + " is not empty (use --force to write into it)";
            return TargetState::NotEmpty;
        }
    } else if (fs::path parent = fs::path(dir).parent_path();
               !parent.empty() && !fs::is_directory(parent, ec)) {
        why = "cannot create " + dir + ": " + parent.string() + " does not exist";
        return TargetState::NotWritable;
    } else if (!fs::create_directory(dir, ec) || ec) {
        why = "cannot create " + dir + ": " + ec.message();
        return TargetState::NotWritable;
    }
    // Write something now: a directory that cannot take a file fails here, before discovery runs.
    const fs::path probe = fs::path(dir) / ".vessa" / "captured-by";
    fs::create_directories(probe.parent_path(), ec);
    std::ofstream out(probe);
    out << "vessa-storage capture\n";
    const bool written = !ec && out.good();
    out.close();
    fs::remove(probe, ec);
    if (!written) {
        why = "cannot write into " + dir + ": permission denied";
        return TargetState::NotWritable;
    }
    return TargetState::Usable;
}

TreeSize measure(const std::string& dir) {
    TreeSize size;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(dir, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        if (it->is_symlink(ec)) {
            ++size.files;
            size.bytes += fs::read_symlink(it->path(), ec).string().size();
        } else if (it->is_regular_file(ec)) {
            ++size.files;
            size.bytes += it->file_size(ec);
        }
    }
    return size;
}

}  // namespace vessa::cli
