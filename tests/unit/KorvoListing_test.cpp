#include <gtest/gtest.h>

#include <malloc.h>

#include "platform/Str.h"
#include "support/FakeProgram.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;

namespace {

class Listing : public ::testing::Test {
  protected:
    void SetUp() override {
        vessa::hax::clearHostCache();
        vessa::test::FakeProgram pelo("pelo", "build.os=linux\n");
        host.reset(Host::named("127.0.0.1", false));
    }
    void TearDown() override { vessa::hax::clearHostCache(); }
    // Parses `text` and gives every item as "index|path|name|file system|signature|size|exclusions".
    std::vector<std::string> parse(const std::string& text,
                                   Storage::storageType type = Storage::physicalStorage) {
        std::istringstream in(text);
        Host::callback cb = nullptr;
        host->parseOldKorvoListing(in, type, cb);
        std::vector<std::string> items;
        for (Storage* s : host->storage()) {
            items.push_back(std::to_string(s->index()) + "|" + s->path() + "|" + s->name() + "|" +
                            s->properties().at("fileSystem").value() + "|" +
                            s->properties().at("signature").value() + "|" + std::to_string(s->size()) + "|" +
                            s->exclusionString());
        }
        return items;
    }
    std::unique_ptr<Host> host;
};

// A line that ends early leaves signature and size 0; an empty line is an item with an empty path. A
// partition exclusion without partitions counts one partition; a lower-case "p" is no exclusion.
TEST_F(Listing, FieldsIndexAndTrimming) {
    vessa::test::LogCapture log;
    EXPECT_EQ(parse("[3]~ /dev/sdc ~  my disk ~INQ~ntfs~~1:0:0:0~~7\n/dev/sdd\n\n"
                    "/dev/a~a~~~~~P~0~1~0~4096\n/dev/b~b~~~~~p~0~1~0~4096\n"),
              (std::vector<std::string>{"3|/dev/sdc|my disk|ntfs|0|0|   M      ",
                                        "-1|/dev/sdd|||0|0| G M      ", "-1||||0|0| G M      ",
                                        "-1|/dev/a|a||1|4096|    P     ", "-1|/dev/b|b||1|4096|          "}));
    EXPECT_TRUE(log.hasMessage("Adding new storage \"  my disk \""));
    EXPECT_TRUE(log.hasMessage("Path set to:  /dev/sdc , still parsing   my disk ~INQ~ntfs~~1:0:0:0~~7"));
    EXPECT_TRUE(log.hasMessage("Inquir: INQ, still parsing ntfs~~1:0:0:0~~7"));
    EXPECT_TRUE(log.hasMessage("Partition exclusion found when no partitions present!"));
}

// The failing line adds nothing and the lines after it are not read. (A bad drive type, boot flag or index
// fail the same way through a remote host's fill, where the bad-input catalogue has them.)
TEST_F(Listing, ConversionFailuresStopAtTheFailingLine) {
    const char* const bad[] = {
        "/dev/x~x~~~~~~0~1~0~~0",           // empty size (a trailing empty field is never read)
        "/dev/x~x~~~~~~0~1~0~4096~0~true",  // system as a word
    };
    for (const char* line : bad) {
        for (Storage* s : host->storage()) {
            delete s;
        }
        host->storage().clear();
        EXPECT_THROW(parse(std::string("/dev/ok~ok\n") + line + "\n/dev/after~after\n"),
                     vessa::util::str::Exception)
            << line;
        ASSERT_EQ(host->storage().size(), 1u) << line;
        EXPECT_EQ(host->storage().front()->path(), "/dev/ok");
    }
}

// What an item of a listing costs the controller stays within four times its own size (the item, and
// a key and a value for each of its eleven properties), never a copy of every property's description
// (which once made 400,000 one-character lines take 1.6 GB).
TEST_F(Listing, ItemsHoldNoCopiesOfTheDescriptions) {
    constexpr std::size_t kItems = 20000;
    std::string text;
    for (std::size_t i = 0; i < kItems; ++i) {
        text += "x\n";
    }
    const std::size_t before = ::mallinfo2().uordblks;
    parse(text);
    ASSERT_EQ(host->storage().size(), kItems);
    const std::size_t perItem = (::mallinfo2().uordblks - before) / kItems;
    EXPECT_LE(perItem, 4 * (sizeof(Storage) + 11 * 2 * sizeof(std::string)));
}

TEST_F(Listing, FileSystemItemsGetTheTestFile) {
    EXPECT_EQ(parse("/mnt/data~data\nE:~e\n", Storage::fileSystemStorage),
              (std::vector<std::string>{"-1|/mnt/data/targetfile.dat|data||0|0| G M      ",
                                        "-1|E:|e||0|0| G M      "}));
}

}  // namespace
