#include <gtest/gtest.h>

#include <unistd.h>

#include "support/FakeProgram.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Property;
using vessa::target::Storage;

namespace {

const std::string kData = std::string(VESSA_SOURCE_DIR) + "/tests/data/report/";

class Report : public ::testing::Test {
  protected:
    void SetUp() override {
        vessa::test::FakeProgram pelo("pelo", "");
        host.reset(Host::named("127.0.0.1", false));
    }
    // The report equals the file of tests/data/report byte for byte. (Those files are well-formed and
    // their rows valid against the schema they carry; the scenario check validates live reports.)
    void expectReport(const std::string& file) {
        std::ostringstream out;
        host->printStorage(out);
        EXPECT_EQ(out.str(), vessa::test::readFile(kData + file));
    }
    void add(Storage* s) { host->storage().push_back(s); }
    std::unique_ptr<Host> host;
};

// An empty host declares only the property table; printStorage(true) writes <host name>.xml.
TEST_F(Report, EmptyHostDeclaresOnlyTheHostTable) {
    expectReport("empty.xml");
    vessa::test::TempDir dir;
    char old[4096];
    ASSERT_NE(getcwd(old, sizeof old), nullptr);
    ASSERT_EQ(chdir(dir.path().c_str()), 0);
    host->printStorage(true);
    ASSERT_EQ(chdir(old), 0);
    EXPECT_EQ(vessa::test::readFile(dir.path() + "/127.0.0.1.xml"),
              vessa::test::readFile(kData + "empty.xml"));
}

// Two items at one path: two identical declarations and two sets of rows of one name.
TEST_F(Report, TextsThatNeedEscapingAndRepeatedTables) {
    const std::map<std::string, Property> props = {
        {"note", Property("note<", "a<b & c", "Note \"q\"", "it's", "General")},
        {"ctl", Property("ctl", "\x01hidden", "", "", "Debug")},
    };
    add(new Storage(Storage::discoveredBlockDevice, "d", "/dev/d", 1, 0, "", 0, props));
    add(new Storage(Storage::discoveredBlockDevice, "d", "/dev/d", 1, 1, "", 0, props));
    expectReport("escaping.xml");
}

// Control characters after a printable first one, bytes that are not UTF-8 and U+FFFE/U+FFFF, which
// the cleaning keeps, are written as U+FFFD: the report stays well-formed.
TEST_F(Report, CharactersXmlCannotCarry) {
    const std::map<std::string, Property> props = {
        {"title", Property("title", "a\x1b]0;owned\a", "", "", "General")},
        {"screen", Property("screen", "b\x1b[2J\x1b[8m", "", "", "General")},
        {"bytes",
         Property("bytes", std::string("c\0\xff\xc3\xef\xbf\xbe\xef\xbf\xbf", 10), "", "", "General")},
        {"kept", Property("kept", "d\te\nf\r\xc3\xa9\x7f", "", "", "General")},
    };
    add(new Storage(Storage::discoveredBlockDevice, "d", "/dev/d", 1, 0, "", 0, props));
    expectReport("controls.xml");
}

TEST(SortStorage, OrdersByPathOnlyWhenLengthsMatch) {
    Storage sda(Storage::discoveredBlockDevice, "a", "/dev/sda", 1, 0, "", 0, {});
    Storage sdb(Storage::discoveredBlockDevice, "b", "/dev/sdb", 1, 0, "", 0, {});
    Storage sda1(Storage::discoveredBlockDevice, "a1", "/dev/sda1", 1, 0, "", 0, {});
    EXPECT_FALSE(Host::sortStorage(&sdb, &sda));
    EXPECT_FALSE(Host::sortStorage(&sda, &sda1));
    EXPECT_FALSE(Host::sortStorage(&sda1, &sda));
    vessa::test::LogCapture log;
    EXPECT_TRUE(Host::sortStorage(&sda, &sdb));
    EXPECT_TRUE(log.hasMessage("Same length"));
    EXPECT_TRUE(log.hasMessage("/dev/sda comes before /dev/sdb"));
}

}  // namespace
