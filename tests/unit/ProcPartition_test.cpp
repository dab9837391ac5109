#include "lin/ProcPartition.h"

#include <gtest/gtest.h>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"

using vessa::target::Storage;
using vessa::target::lin::ProcPartition;

namespace {

struct Parsed {
    std::list<ProcPartition*> list;
    ~Parsed() {
        for (ProcPartition* p : list) {
            delete p;
        }
    }
    std::vector<std::string> names() const {
        std::vector<std::string> n;
        for (const ProcPartition* p : list) {
            n.push_back(p->name());
        }
        return n;
    }
};

TEST(ProcPartition, HeaderColumnsDecideAndBadLinesAreDropped) {
    const struct {
        const char* text;
        std::vector<std::string> names;
        long long firstBlocks;
    } cases[] = {
        {"major minor  #blocks  name\n\n   8     0  976762584 sda\n   8     1     512000 sda1\n",
         {"sda", "sda1"},
         976762584},
        {"name major minor #BLOCKS\nsdb 8 16 1024\n", {"sdb"}, 1024},
        {"major minor  #blocks  name\n 8 0 100\n-8 0 100 sdx\n 8 16 0 sdb\n", {"sdb"}, 0},
        {"", {}, 0},
    };
    for (const auto& c : cases) {
        vessa::test::LogCapture log;
        Parsed p;
        std::set<std::string> names;
        ProcPartition::parse(c.text, p.list, names);
        EXPECT_EQ(p.names(), c.names) << c.text;
        if (!p.list.empty()) {
            EXPECT_EQ(p.list.front()->blocks(), c.firstBlocks);
        }
    }
    vessa::test::LogCapture log;
    Parsed p;
    std::set<std::string> names;
    ProcPartition::parse("major minor #blocks name\n 8 0 100\n", p.list, names);
    EXPECT_TRUE(log.hasMessage("couldn't get a valid /proc/partition entry from \" 8 0 100\""));
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
    // A line of a million blanks and tokens is cut in one walk (it took minutes before).
    std::string longLine;
    for (int i = 0; i < 500000; ++i) {
        longLine += "7 ";
    }
    EXPECT_EQ(vessa::target::lin::blankTokens(longLine).size(), 500000u);
}

TEST(ProcPartition, RealListsParseWhole) {
    const struct {
        const char* file;
        std::size_t count;
        const char* first;
    } cases[] = {
        {"partitions/forum2007-proc-partitions-cciss-after.txt", 6, "cciss/c0d0"},
        {"partitions/insights-proc-partitions-multipath-luns.txt", 0, "sdb"},
        {"partitions/libstorage-proc-partitions-dm.txt", 0, "sda"},
    };
    for (const auto& c : cases) {
        Parsed p;
        std::set<std::string> names;
        ProcPartition::parse(vessa::test::dataBody(c.file), p.list, names);
        ASSERT_FALSE(p.list.empty()) << c.file;
        if (c.count != 0) {
            EXPECT_EQ(p.list.size(), c.count) << c.file;
        }
        EXPECT_EQ(p.list.front()->name(), c.first) << c.file;
        for (const ProcPartition* e : p.list) {
            EXPECT_TRUE(e->valid());
            EXPECT_GE(e->major(), 0);
        }
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
    vessa::test::ScopedView scoped(std::move(view));
    vessa::test::LogCapture log;
    Parsed p;
    ProcPartition::readProcPartitions(p.list);
    EXPECT_EQ(p.names(), (std::vector<std::string>{".cifs.", ".nfs.", ".fusefs.", "sda", "sdb"}));
    EXPECT_EQ(p.list.back()->blocks(), 1);
    EXPECT_EQ(p.list.back()->minor(), 16);
    EXPECT_TRUE(log.hasMessage("sda already processed from /proc/partitions"));
    EXPECT_TRUE(log.hasMessage("/dev/sdc doesn't exist"));
    EXPECT_TRUE(log.hasMessage("/dev/loop0 block size by RC == 0"));
    EXPECT_TRUE(log.hasMessage("failed to tokenize major:minor"));
    EXPECT_TRUE(log.hasMessage("Got procPart (via /sys/block): sdb (8:16) blocks=1"));
}

TEST(ProcPartition, MissingAndMalformedSources) {
    {
        vessa::test::ScopedView scoped(std::make_unique<vessa::test::ScriptedView>());
        Parsed p;
        ProcPartition::readProcPartitions(p.list);
        EXPECT_EQ(p.names(), (std::vector<std::string>{".cifs.", ".nfs.", ".fusefs."}));
    }
    auto view = std::make_unique<vessa::test::ScriptedView>();
    view->files["/proc/partitions"] = "major minor #blocks name\n8 0 10 sda\n8 x 10 sdb\n8 32 10 sdc\n";
    vessa::test::ScopedView scoped(std::move(view));
    vessa::test::LogCapture log;
    Parsed p;
    ProcPartition::readProcPartitions(p.list);
    // A number that does not convert ends the reading; what was read stays.
    EXPECT_EQ(p.names(), (std::vector<std::string>{".cifs.", ".nfs.", ".fusefs.", "sda"}));
    EXPECT_TRUE(log.hasMessage("Failed to finish reading...like a boss..."));
}

TEST(ProcPartition, ExclusionsAndProperties) {
    const struct {
        const char* line;
        Storage::exclusions ex;
    } cases[] = {{".nfs.", 0}, {".vmhgfs.", 0}, {"8 16 0 sdb", Storage::kEmpty}, {"8 16 1 sdb", 0}};
    for (const auto& c : cases) {
        ProcPartition p(c.line, 0, 1, 2, 3);
        Storage::exclusions ex = 0;
        p.getExclusions(ex);
        EXPECT_EQ(ex, c.ex) << c.line;
    }
    ProcPartition p("8 1 512000 sda1", 0, 1, 2, 3);
    std::map<std::string, vessa::target::Property> props;
    p.addProperties("Partition ", props);
    EXPECT_EQ(props.size(), 5u);
    EXPECT_EQ(props.at("Blocks").value(), "512000");
    EXPECT_EQ(props.at("Valid").value(), "true");
    EXPECT_EQ(props.at("MajorNumber").category(), "Partition /proc/partitions/sda1");
    EXPECT_EQ(props.at("MinorNumber").description(),
              "System assigned minor number.  Typically indicates the index of the device on the bus.");
}

}  // namespace
