#include <gtest/gtest.h>

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
    void parse(const std::string& text, Storage::storageType type = Storage::physicalStorage) {
        std::istringstream in(text);
        Host::callback cb = nullptr;
        host->parseOldKorvoListing(in, type, cb);
    }
    std::unique_ptr<Host> host;
};

TEST_F(Listing, FieldsIndexAndTrimming) {
    vessa::test::LogCapture log;
    parse("[3]~ /dev/sdc ~  my disk ~INQ~ntfs~~1:0:0:0~~7\n/dev/sdd\n\n");
    ASSERT_EQ(host->storage().size(), 3u);
    Storage* first = host->storage().front();
    EXPECT_EQ(first->index(), 3);
    EXPECT_EQ(first->path(), "/dev/sdc");
    EXPECT_EQ(first->name(), "my disk");
    EXPECT_EQ(first->properties().at("fileSystem").value(), "ntfs");
    EXPECT_EQ(first->properties().at("signature").value(), "0");  // line ended before the signature
    EXPECT_EQ(first->size(), 0u);
    EXPECT_EQ(first->exclusionString(), "   M      ");
    EXPECT_TRUE(log.hasMessage("Adding new storage \"  my disk \""));
    EXPECT_TRUE(log.hasMessage("Path set to:  /dev/sdc , still parsing   my disk ~INQ~ntfs~~1:0:0:0~~7"));
    EXPECT_TRUE(log.hasMessage("Inquir: INQ, still parsing ntfs~~1:0:0:0~~7"));
    Storage* second = *std::next(host->storage().begin());
    EXPECT_EQ(second->index(), -1);
    EXPECT_EQ(second->path(), "/dev/sdd");
    EXPECT_EQ(host->storage().back()->path(), "");  // an empty line is an item with an empty path
}

TEST_F(Listing, PartitionExclusionWithoutPartitions) {
    vessa::test::LogCapture log;
    parse("/dev/a~a~~~~~P~0~1~0~4096\n/dev/b~b~~~~~p~0~1~0~4096\n");
    EXPECT_EQ(host->storage().front()->exclusionString(), "    P     ");
    EXPECT_EQ(host->storage().back()->exclusionString(), "          ");
    EXPECT_TRUE(log.hasMessage("Partition exclusion found when no partitions present!"));
}

TEST_F(Listing, ConversionFailuresStopAtTheFailingLine) {
    const char* const bad[] = {
        "/dev/x~x~~~~~~x~1~0~4096",         // drive type, never used, still checked
        "/dev/x~x~~~~~~0~1~0~~0",           // empty size (a trailing empty field is never read)
        "/dev/x~x~~~~~~0~1~0~4096~2",       // boot must be 0 or 1
        "/dev/x~x~~~~~~0~1~0~4096~0~true",  // system as a word
        "[x]~/dev/x",                       // index
    };
    for (const char* line : bad) {
        host->storage().clear();
        EXPECT_THROW(parse(std::string("/dev/ok~ok\n") + line + "\n/dev/after~after\n"),
                     vessa::util::str::Exception)
            << line;
        ASSERT_EQ(host->storage().size(), 1u) << line;
        EXPECT_EQ(host->storage().front()->path(), "/dev/ok");
        delete host->storage().front();
    }
    host->storage().clear();
}

TEST_F(Listing, FileSystemItemsGetTheTestFile) {
    parse("/mnt/data~data\nE:~e\n", Storage::fileSystemStorage);
    EXPECT_EQ(host->storage().front()->path(), "/mnt/data/targetfile.dat");
    EXPECT_EQ(host->storage().back()->path(), "E:");
}

}  // namespace
