// Malformed local sources, one table per family: what real machines and broken tools can hand the
// library, and the one clear result each must give (items, or a failed source), never a crash or a
// hang. What a hostile remote host can send is in HostQuery_test.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "platform/view/SystemView.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

namespace sys = vessa::sal::sys;
using vessa::target::Host;
using vessa::target::Storage;
using namespace std::string_literals;  // "...\0..."s keeps its NUL bytes

namespace {

const std::string kDisks =
    "major minor  #blocks  name\n\n   8        0       1024 sda\n   8        1        512 sda1\n";
const std::string kTree = ".vessa/commands/dmsetup ls --tree -o notrunc";
const std::string kMultipaths = ".vessa/commands/dmsetup ls --target multipath";
const std::string kDm0 = kDisks + " 253 0 1024 dm-0\n";
const std::string kMiB(1 << 20, 'x');
const std::string kPP = "proc/partitions", kLvd = ".vessa/commands/lvdisplay";
const std::string kPvd = ".vessa/commands/pvdisplay", kVgd = ".vessa/commands/vgdisplay";
using File = std::pair<const std::string, std::string>;
const File kWithDm0 = {kPP, kDm0}, kSda1Readable = {"dev/sda1", "readable\n"};
const File kSdaDev = {"sys/block/sda/dev", "8:0\n"}, kSdaSize = {"sys/block/sda/size", "2048\n"};

std::string shown(const std::string& text) {
    return text.size() <= 64 ? text : "<" + std::to_string(text.size()) + " bytes>";
}

// Every item as "type path [exclusions]" (and the value of the property `key` where an item has it),
// then the sources whose readers stopped, each having logged why (the partition list's reader its own
// line, the others the run, with the base library's exception text); such a run is not complete.
std::string summary(Host& host, const char* key, const std::string& log) {
    std::string out;
    for (Storage* s : host.storage()) {
        out += std::to_string(s->deviceStorageType()) + " " + shown(s->path()) + " [" + s->exclusionString() +
               "]";
        if (key != nullptr && s->properties().count(key)) {
            out += " " + std::string(key) + "=" + shown(s->properties().at(key).value());
        }
        out += "\n";
    }
    for (const auto& f : host.discoveryReport().failedSources) {
        out += "failed " + f.source + "\n";
        EXPECT_NE(
            log.find(f.source == "/proc/partitions" ? "Failed to finish reading...like a boss..."
                                                    : "vessa::util::str::Exception because conversion from"),
            std::string::npos);
        EXPECT_FALSE(host.discoveryReport().complete());
    }
    return out;
}

const std::string kSda = "36 /dev/sda [    P     ]\n", kSda1 = "26 /dev/sda1 [          ]\n";
const std::string kPlain = kSda + kSda1, kSysFailed = kPlain + "failed /sys/block\n";
const std::string kSdb = "36 /dev/sdb [          ]\n";

struct Snapshot {
    const char* name;
    std::map<std::string, std::string> files;  // over a host with the disk sda and its partition sda1
    std::string expected = kPlain;  // by default, sda holds the partition sda1 (P), the logical item
    const char* key = nullptr;      // a property to show
};

// Local discovery of snapshots. Invalid /proc/partitions lines are dropped and its reader stops at a number
// it cannot convert, logging it itself; the other readers stop at such a number, keep what they read, and
// the run notes them as failed; text after a valid number is ignored ("16x" is 16).
TEST(BadInput, LocalSources) {
    std::string manyTokens;
    for (int i = 0; i < (1 << 19); ++i) {
        manyTokens += " x";
    }
    const Snapshot cases[] = {
        {"pp truncated line", {{kPP, kDisks + "   8     "}}},  // no minor: dropped
        // A header cut before "name", or binary, names no column that is the name.
        {"pp truncated header", {{kPP, "major minor  #bl"}}, ""},
        {"pp binary", {{kPP, "\177ELF\x02\x01\0\0\n\xff\xfe 8 0\0 1 sdz\n"s}}, ""},
        // Columns are found by their header; without "#blocks" the size stays 0 (valid, and zero-size: M);
        // without "name" no entry is valid; CR is white space.
        {"pp no blocks column", {{kPP, "major minor name\n8 16 sdb\n"}}, "36 /dev/sdb [   M      ]\n"},
        {"pp no name column", {{kPP, "major minor #blocks\n8 16 2048\n"}}, ""},
        {"pp crlf", {{kPP, "major minor #blocks name\r\n8 16 2048 sdb\r\n"}}, kSdb},
        // "16x" converts to 16; "x" does not: the reader stops there (sdd is never read) and catches that
        // itself, yet the run still counts the list as failed. So for a size beyond 64 bits.
        {"pp non-numeric",
         {{kPP, kDisks + "   8 16x 2048 sdb\n   x 32 2048 sdc\n   8 48 2048 sdd\n"}},
         kSda + kSdb + kSda1 + "failed /proc/partitions\n"},
        {"pp overflow",
         {{kPP, kDisks + "   8 16 99999999999999999999 sdb\n"}},
         kPlain + "failed /proc/partitions\n"},
        // Runs of blanks are one separator, however long; half a million tokens behind the name column
        // are ignored (and split in linear time); a name of 1 MiB is a name.
        {"pp 1MiB blanks",
         {{kPP, kDisks + "   8" + std::string(1 << 20, ' ') + "16 2048 sdb\n"}},
         kSda + kSdb + kSda1},
        {"pp 1MiB tokens", {{kPP, kDisks + "   8 16 2048 sdb" + manyTokens + "\n"}}, kSda + kSdb + kSda1},
        {"pp 1MiB name",
         {{kPP, kDisks + "   8 16 2048 " + kMiB + "\n"}},
         kSda + "36 <1048581 bytes> [          ]\n" + kSda1},
        // The first line is the whole file; its number ends at the first NUL byte; no number at all stops
        // the /sys/block reader (/proc/partitions still lists sda). Text attributes keep their NUL bytes.
        {"sys size nul",
         {kSdaDev, {"sys/block/sda/size", "2048\0\0\0"s}},
         "36 /dev/sda [    P     ] SysBlockSize=2048\n" + kSda1,
         "SysBlockSize"},
        {"sys size binary", {kSdaDev, {"sys/block/sda/size", "\xff\xfe"}}, kSysFailed},
        {"sys model nul",
         {kSdaDev, kSdaSize, {"sys/block/sda/device/model", "Disk\0\0X"s}},
         "36 /dev/sda [    P     ] SysBlockModel=Disk\0\0X\n"s + kSda1,
         "SysBlockModel"},
        {"sys dev no colon", {{"sys/block/sda/dev", "8"}}, kSysFailed},  // "8" splits into "8" and ""
        {"sys dev bad minor", {{"sys/block/sda/dev", "8:x\n"}}, kSysFailed},
        {"sys removable word", {kSdaDev, {"sys/block/sda/removable", "yes\n"}}, kSysFailed},
        // A disk known only to /sys/block (it answers READ CAPACITY) is taken with its size in KiB...
        {"sys only disk",
         {{"sys/block/sdx/dev", "8:64"},
          {"dev/sdx", ""},
          {".vessa/ioctl/sdx.read_capacity", "512\n"},
          {".vessa/ioctl/sdx.size", "1536\n"},
          {"sys/block/sdx/size", "3\n"}},
         "36 /dev/sda [    P     ] Blocks=512\n36 /dev/sdx [          ] Blocks=1\n26 /dev/sda1 [          ] "
         "Blocks=512\n",
         "Blocks"},
        // ...but one whose dev file has no ":" is passed over, without a failure.
        {"sys only dev no colon",
         {{"sys/block/sdx/dev", "8"}, {"dev/sdx", ""}, {".vessa/ioctl/sdx.read_capacity", "512\n"}}},
        // Holders in /sys/block relate nothing (the device-mapper tree does): neither one that names no
        // device nor the device itself changes the list.
        {"sys holder nowhere", {kSdaDev, kSdaSize, {"sys/block/sda/holders/dm-9", ""}}},
        {"sys own holder",
         {kSdaDev, kSdaSize, {"sys/block/sda/holders/sda", ""}, {"sys/block/sda/slaves/sda", ""}}},
        // Depth is the first column that is not a blank: a tab-indented path is a top-level node, so
        // mpatha has no path and sda stays a disk of its own.
        {"dm odd indentation",
         {kWithDm0, {kTree, "mpatha (253:0)\n\t└─(8:0)\n"}, {kMultipaths, "mpatha\t(253:0)\n"}},
         kSda + "36 /dev/mapper/mpatha [          ]\n" + kSda1},
        // A blank line is a node "device" (0:0) at depth -1, and the next lines hang below it: mpatha
        // and its path are no longer parent and child.
        {"dm blank lines",
         {kWithDm0, {kTree, "\nmpatha (253:0)\n\n └─ (8:0)\n\n"}, {kMultipaths, "\nmpatha\t(253:0)\n\n"}},
         kSda + "36 /dev/mapper/mpatha [          ]\n" + kSda1},
        // The old "(253, 0)" form: sda is a path of mpatha, which takes its place (and its partition's
        // P); logical devices are not looked for below multipath paths.
        {"dm comma numbers",
         {kWithDm0, {kTree, "mpatha (253, 0)\n └─ (8, 0)\n"}, {kMultipaths, "mpatha (253, 0)\n"}},
         "36 /dev/mapper/mpatha [    P     ]\n"},
        // The tree reader stops at "253:x" and keeps vg-a, which holds sda1 and takes its place.
        {"dm bad numbers",
         {{kPP, kDm0 + " 253 1 1024 dm-1\n"}, {kTree, "vg-a (253:1)\n └─ (8:1)\nvg-b (253:x)\n"}},
         kSda + "36 /dev/dm-0 [          ]\n26 /dev/dm-1 [          ]\nfailed dmsetup\n"},
        // A node below itself is not its own holder.
        {"dm own child",
         {kWithDm0, {kTree, "dm-0 (253:0)\n └─dm-0 (253:0)\n"}},
         kSda + "36 /dev/dm-0 [          ]\n" + kSda1},
        // A multipath device listed as its own path becomes its own target, and targets are no roots:
        // it leaves the list (the correlation pairs every link with itself too).
        {"dm own multipath path",
         {kWithDm0, {kTree, "mpatha (253:0)\n └─mpatha (253:0)\n"}, {kMultipaths, "mpatha\t(253:0)\n"}}},
        // Each of two device-mapper devices claims to be built on the other, and one of them on sda: every
        // walk over the relations (the log's dump too) ends, and the / mount on one reaches sda.
        {"dm cycle",
         {{kPP, kDm0 + " 253 1 1024 dm-1\n"},
          {kTree, "a (253:0)\n `- b (253:1)\n     `- (8:0)\nb (253:1)\n `- a (253:0)\n"},
          {"etc/mtab", "/dev/mapper/b / ext4 rw 0 0\n"},
          {"dev/mapper/b", "x\n"}},
         "36 /dev/sda [    PS    ]\n26 /dev/sda1 [          ]\n26 /dev/dm-0 [     S    ]\n1 //targetfile.dat "
         "[     S    ]\n"},
        // A display cut in its second key: the volume is made with what it had.
        {"pv cut",
         {{kPvd, "  --- Physical volume ---\n  PV Name    /dev/sda1\n  VG Na"}},
         "36 /dev/sda [    P     ] PVVGName=\n26 /dev/sda1 [          ] PVVGName=\n",
         "PVVGName"},
        {"vg cut",
         {{kPvd, "  PV Name  /dev/sda1\n  VG Name  vg0\n"},
          {kVgd, "  --- Volume group ---\n  VG Name   vg0\n  Form"}},
         "36 /dev/sda [    P  V  ]\n26 /dev/sda1 [       V  ]\n"},
        // Cut inside "Block device": the empty minor stops the reader; the volume before it stays.
        // "253,0" has no ":": the major reads 253, the minor is empty.
        {"lv cut in number",
         {kWithDm0,
          {kLvd,
           "  LV Name  /dev/vg0/a\n  Block device  253:0\n  LV Name  /dev/vg0/b\n  Block device  253:"}},
         kSda + "36 /dev/dm-0 [          ] LVName=vg0/a\n" + kSda1 + "failed lvdisplay\n",
         "LVName"},
        {"lv comma number",
         {kWithDm0, {kLvd, "  LV Name  /dev/vg0/a\n  Block device  253,0\n"}},
         kSda + "36 /dev/dm-0 [          ]\n" + kSda1 + "failed lvdisplay\n",
         "LVName"},
        // Tabs do not separate fstab columns: the device is the whole line, the mount point empty.
        {"fstab tabs", {{"etc/fstab", "/dev/sda1\t/\text4\tdefaults\t0\t1\n"}}},
        // Short lines: no mount point, nothing; a mount point without a type still marks the system.
        {"fstab short",
         {{"etc/fstab", "/dev/sda1\n/dev/sda1 /\n"}},
         "36 /dev/sda [    PS    ]\n26 /dev/sda1 [     S    ]\n1 //targetfile.dat [     S    ]\n"},
        // Octal escapes are undone; those that are not three octal digits up to \377 stay as written.
        {"mtab octal",
         {kSda1Readable, {"etc/mtab", "/dev/sda1 /mnt/my\\040disk\\011x ext4 rw 0 0\n"}},
         kPlain + "1 /mnt/my disk\tx/targetfile.dat [          ]\n"},
        {"mtab bad escapes",
         {kSda1Readable, {"etc/mtab", "/dev/sda1 /mnt/a\\400\\9\\04 ext4 rw 0 0\n"}},
         kPlain + "1 /mnt/a\\400\\9\\04/targetfile.dat [          ]\n"},
        // Binary lines name no "/dev/" device and no network type: skipped.
        {"mtab binary", {{"etc/mtab", "\0\xff/dev/sda1\t/\0 ext4\n\x01\x02\n"s}}},
        // A mount point of 1 MiB is one; a last line without a newline is read too.
        {"mtab 1MiB",
         {kSda1Readable, {"etc/mtab", "/dev/sda1 /" + kMiB + " ext4 rw 0 0\n/dev/sda1 / ext4 rw"}},
         "36 /dev/sda [    PS    ]\n26 /dev/sda1 [     S    ]\n1 <1048592 bytes> [     S    ]\n1 "
         "//targetfile.dat [     S    ]\n"},
    };
    for (const Snapshot& c : cases) {
        SCOPED_TRACE(c.name);
        vessa::test::TempDir root;
        root.write("etc/hostname", "bad\n");
        root.write("proc/partitions", kDisks);
        for (const auto& [path, content] : c.files) {
            root.write(path, content);
        }
        vessa::hax::clearHostCache();
        vessa::test::ScopedView view(root.path());
        std::unique_ptr<Host> host(Host::named(sys::current().hostName(), false));
        vessa::test::LogCapture log;
        host->fill(Storage::allStorage, nullptr, false, {});
        EXPECT_EQ(summary(*host, c.key, log.text()), c.expected);
        host.reset();
        vessa::hax::clearHostCache();
    }
}

}  // namespace
