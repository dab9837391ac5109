#include "lin/ProcPartition.h"

#include <gtest/gtest.h>

#include "support/Owned.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using vessa::target::Storage;
using vessa::target::lin::ProcPartition;

namespace {

// Every entry as "name major:minor blocks", joined by ", "; an invalid entry is marked "!".
std::string dump(const std::list<ProcPartition*>& list) {
    std::string out;
    for (const ProcPartition* p : list) {
        out += (out.empty() ? "" : ", ") + p->name() + " " + std::to_string(p->major()) + ":" +
               std::to_string(p->minor()) + " " + std::to_string(p->blocks()) + (p->valid() ? "" : "!");
    }
    return out;
}

// The header decides which column is which; a line with a missing name or a negative major is dropped.
TEST(ProcPartition, HeaderColumnsDecideAndBadLinesAreDropped) {
    // The text, its entries, and a line logged on the way.
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"major minor  #blocks  name\n\n   8     0  976762584 sda\n   8     1     512000 sda1\n",
         "sda 8:0 976762584, sda1 8:1 512000", "Got procPart: sda1 (8:1) blocks=512000"},
        {"name major minor #BLOCKS\nsdb 8 16 1024\n", "sdb 8:16 1024",
         "Got procPart: sdb (8:16) blocks=1024"},
        {"major minor  #blocks  name\n 8 0 100\n-8 0 100 sdx\n 8 16 0 sdb\n", "sdb 8:16 0",
         "couldn't get a valid /proc/partition entry from \" 8 0 100\""},
        {"", "", "Parsing partitions."},
    };
    for (const auto& [text, entries, logged] : cases) {
        vessa::test::LogCapture log;
        vessa::test::Owned<ProcPartition> p;
        std::set<std::string> names;
        ProcPartition::parse(text, p, names);
        EXPECT_EQ(dump(p), entries) << text;
        EXPECT_TRUE(log.hasMessage(logged)) << log.text();
    }
}

TEST(ProcPartition, BlankTokensSplitAtBlanksAndTrimTheRest) {
    const struct {
        const char* line;
        std::vector<std::string> tokens;
    } cases[] = {
        {"   8     0  976762584 sda  ", {"8", "0", "976762584", "sda"}},
        {"a \tb", {"a", "b"}},          // white space after a blank is trimmed away
        {"a\t b\tc", {"a\t", "b\tc"}},  // before a blank, and alone, it is part of the token
        {" \t\r\n", {}},
        {"", {}},
    };
    for (const auto& c : cases) {
        const std::list<std::string> tokens = vessa::target::lin::blankTokens(c.line);
        EXPECT_EQ(std::vector<std::string>(tokens.begin(), tokens.end()), c.tokens) << c.line;
    }
    // A line of a million blanks and tokens is cut in one walk.
    std::string longLine;
    for (int i = 0; i < 500000; ++i) {
        longLine += "7 ";
    }
    EXPECT_EQ(vessa::target::lin::blankTokens(longLine).size(), 500000u);
}

TEST(ProcPartition, RealListsParseWhole) {
    // The file, its number of entries and the first one.
    const std::tuple<const char*, std::size_t, const char*> cases[] = {
        {"partitions/forum2007-proc-partitions-cciss-after.txt", 6, "cciss/c0d0 104:0 35532720"},
        {"partitions/insights-proc-partitions-multipath-luns.txt", 39, "sdb 8:16 1384120320"},
        {"partitions/libstorage-proc-partitions-dm.txt", 12, "sda 8:0 976762584"},
    };
    for (const auto& [file, count, first] : cases) {
        vessa::test::Owned<ProcPartition> p;
        std::set<std::string> names;
        ProcPartition::parse(vessa::test::dataBody(file), p, names);
        EXPECT_EQ(p.size(), count) << file;
        EXPECT_EQ(dump(p).rfind(std::string(first) + ",", 0), 0u) << dump(p);
        EXPECT_EQ(dump(p).find('!'), std::string::npos) << dump(p);
    }
}

TEST(ProcPartition, ReaderAddsPseudoEntriesAndDisksThatAnswerReadCapacity) {
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->files["/proc/partitions"] = "major minor  #blocks  name\n\n   8     0       1024 sda\n";
    view->dirs["/sys/block"] = {"sda", "sdb", "sdc", "loop0", "sdd"};
    view->files["/dev/sdb"] = std::string(1536, 'x');  // 1536 bytes: one whole KiB
    view->capacities["sdb"] = 512;
    view->files["/sys/block/sdb/dev"] = "8:16\n";
    view->files["/dev/loop0"] = "x";  // no READ CAPACITY answer
    view->files["/dev/sdd"] = "x";
    view->capacities["sdd"] = 512;
    view->files["/sys/block/sdd/dev"] = "garbage\n";
    vessa::test::ScriptedView& raw = *view;
    vessa::test::ScopedView scoped(std::move(view));
    vessa::test::LogCapture log;
    vessa::test::Owned<ProcPartition> p, cut;
    ProcPartition::readProcPartitions(p);
    EXPECT_EQ(dump(p), ".cifs. -1:-1 0, .nfs. -1:-1 0, .fusefs. -1:-1 0, sda 8:0 1024, sdb 8:16 1");
    for (const char* line : {"sda already processed from /proc/partitions", "/dev/sdc doesn't exist",
                             "/dev/loop0 block size by RC == 0", "failed to tokenize major:minor",
                             "Got procPart (via /sys/block): sdb (8:16) blocks=1"}) {
        EXPECT_TRUE(log.hasMessage(line)) << line;
    }
    // A number that does not convert ends the reading, and what was read stays.
    raw.files = {{"/proc/partitions", "major minor #blocks name\n8 0 10 sda\n8 x 10 sdb\n8 32 10 sdc\n"}};
    ProcPartition::readProcPartitions(cut);
    EXPECT_EQ(dump(cut), ".cifs. -1:-1 0, .nfs. -1:-1 0, .fusefs. -1:-1 0, sda 8:0 10");
    EXPECT_TRUE(log.hasMessage("Failed to finish reading...like a boss..."));
}

TEST(ProcPartition, OnlyAnEmptyDeviceIsExcluded) {
    const std::pair<const char*, Storage::exclusions> cases[] = {
        {".nfs.", 0}, {".vmhgfs.", 0}, {"8 16 0 sdb", Storage::kEmpty}, {"8 16 1 sdb", 0}};
    for (const auto& [line, expected] : cases) {
        ProcPartition p(line, 0, 1, 2, 3);
        Storage::exclusions ex = 0;
        p.getExclusions(ex);
        EXPECT_EQ(ex, expected) << line;
    }
}

}  // namespace
