// Malformed local sources too large to keep as files: runs of blanks, tokens and names of a mebibyte
// must be read in linear time, and give one clear result. Every other malformed source is a snapshot
// of tests/golden/bad-input; what a hostile remote host can send is in HostQuery_test.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;

namespace {

const std::string kDisks =
    "major minor  #blocks  name\n\n   8        0       1024 sda\n   8        1        512 sda1\n";
const std::string kMiB(1 << 20, 'x');

std::string shown(const std::string& text) {
    return text.size() <= 64 ? text : "<" + std::to_string(text.size()) + " bytes>";
}

// Every item as "type path [exclusions]", then the sources whose readers stopped.
std::string summary(Host& host) {
    std::string out;
    for (Storage* s : host.storage()) {
        out += std::to_string(s->deviceStorageType()) + " " + shown(s->path()) + " [" + s->exclusionString() +
               "]\n";
    }
    for (const auto& f : host.discoveryReport().failedSources) {
        out += "failed " + f.source + "\n";
    }
    return out;
}

// Runs of blanks are one separator, however long; half a million tokens behind the name column are
// ignored; a name or a mount point of 1 MiB is one; a last line without a newline is read too.
TEST(BadInput, MebibyteSources) {
    std::string manyTokens;
    for (int i = 0; i < (1 << 19); ++i) {
        manyTokens += " x";
    }
    const std::string sda = "36 /dev/sda [    P     ]\n", sda1 = "26 /dev/sda1 [          ]\n";
    const std::string sdb = "36 /dev/sdb [          ]\n";
    const struct {
        std::map<std::string, std::string> files;
        std::string expected;
    } cases[] = {
        {{{"proc/partitions", kDisks + "   8" + std::string(1 << 20, ' ') + "16 2048 sdb\n"}},
         sda + sdb + sda1},
        {{{"proc/partitions", kDisks + "   8 16 2048 sdb" + manyTokens + "\n"}}, sda + sdb + sda1},
        {{{"proc/partitions", kDisks + "   8 16 2048 " + kMiB + "\n"}},
         sda + "36 <1048581 bytes> [          ]\n" + sda1},
        {{{"dev/sda1", "readable\n"},
          {"etc/mtab", "/dev/sda1 /" + kMiB + " ext4 rw 0 0\n/dev/sda1 / ext4 rw"}},
         "36 /dev/sda [    PS    ]\n26 /dev/sda1 [     S    ]\n1 <1048592 bytes> [     S    ]\n1 "
         "//targetfile.dat [     S    ]\n"},
    };
    for (const auto& c : cases) {
        vessa::test::TempDir root;
        root.write("etc/hostname", "bad\n");
        root.write("proc/partitions", kDisks);
        for (const auto& [path, content] : c.files) {
            root.write(path, content);
        }
        vessa::hax::clearHostCache();
        vessa::test::ScopedView view(root.path());
        std::unique_ptr<Host> host(Host::named("bad", false));
        host->fill(Storage::allStorage, nullptr, false, {});
        EXPECT_EQ(summary(*host), c.expected);
    }
}

}  // namespace
