// A snapshot made to lead replay astray: to the file "secret" beside it (by a relative link, an absolute
// one, the full host path, or ".." beyond its top), into a hang (a FIFO, a socket) or round in circles
// (two links naming each other, one naming itself, a chain of 41 links where the kernel follows 40).
// The replay tests read it through both resolvers, and its fuzz target looks for a path that escapes.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace vessa::test {

// Writes top/secret and the snapshot top/root, which it returns ("" when the FIFO or the socket
// could not be made).
inline std::string makeHostileRoot(const std::string& top) {
    namespace fs = std::filesystem;
    const std::string root = top + "/root";
    auto write = [](const std::string& path, const char* content) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << content;
    };
    write(top + "/secret", "SECRET");
    write(root + "/proc/mounts", "inside");
    write(root + "/proc/partitions", "major minor  #blocks  name\n");
    write(root + "/sys/devices/pci/sda/size", "16");
    write(root + "/sys/devices/pci/sda/sda1/size", "8");
    write(root + "/.vessa/commands/pvdisplay", "pv\n");
    fs::create_directories(root + "/empty");
    auto link = [&root](const std::string& target, const std::string& at) {
        fs::create_directories(fs::path(root + "/" + at).parent_path());
        fs::create_symlink(target, root + "/" + at);
    };
    // Pairs of a link and its target.
    std::istringstream links(
        "etc/mtab /proc/mounts  sys/block/sda ../devices/pci/sda  dev/disk/by-id/a ../../sda1  "
        "up ../../../../../../..  abs /  dotdot ..  slash proc/  out-rel ../secret  out-abs /../secret  "
        "loop-a loop-b  loop-b loop-a  self self  dangling nowhere/at/all");
    for (std::string at, target; links >> at >> target;) {
        link(target, at);
    }
    link(top + "/secret", "out-full");
    link(top, "out-top");
    // c0 -> c1 -> ... -> c40 -> proc/mounts: 41 links from c0, the kernel's bound of 40 from c1.
    for (int i = 0; i <= 40; ++i) {
        fs::create_symlink(i == 40 ? "proc/mounts" : "c" + std::to_string(i + 1),
                           root + "/c" + std::to_string(i));
    }
    const bool special = ::mkfifo((root + "/fifo").c_str(), 0644) == 0 &&
                         ::mknod((root + "/socket").c_str(), S_IFSOCK | 0644, 0) == 0;
    return special ? root : "";
}

}  // namespace vessa::test
