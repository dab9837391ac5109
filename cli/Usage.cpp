#include "cli/Usage.h"

#include <algorithm>

namespace vessa::cli {

namespace {

std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t up = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = up;
        }
    }
    return row[b.size()];
}

}  // namespace

std::string nearest(const std::string& word, const std::vector<std::string>& candidates) {
    std::string best;
    std::size_t bestDistance = std::max<std::size_t>(1, word.size() / 3) + 1;
    for (const std::string& c : candidates) {
        const std::size_t d = distance(word, c);
        if (d < bestDistance) {
            best = c;
            bestDistance = d;
        }
    }
    return best;
}

std::string exclusionHelp() {
    return "Exclusions: ten columns, one letter per reason an item is kept out of destructive tests "
           "(a blank: not that reason):\n"
           "  A  boot: mounted at, or listed in /etc/fstab for, /boot\n"
           "  G  no signature: a device of another host's listing without a disk signature\n"
           "  I  reserved: never set\n"
           "  M  empty: the device's size is 0\n"
           "  P  partitioned or holds a file system\n"
           "  S  system: mounted at, or listed for, / (can never be overridden)\n"
           "  U  user: excluded by the user\n"
           "  V  volume group member: a physical volume of a volume group\n"
           "  W  swap: swap space in use or listed in /etc/fstab\n"
           "  Z  excluded by the listing tool of another host\n";
}

}  // namespace vessa::cli
