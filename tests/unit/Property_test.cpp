#include "target/Property.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "support/TestSupport.h"

using vessa::target::Property;

namespace {

std::string element(std::string s) {
    Property::cleanForXmlElement(s);
    return s;
}

std::string text(std::string s) {
    Property::cleanForXmlText(s);
    return s;
}

// A letter, digit or "-" is kept, any other byte becomes its two lower-case hex digits; a name that would
// not start with a letter gets an "x" in front.
TEST(Property, ElementNames) {
    const std::pair<std::string, std::string> cases[] = {{"", "x"},
                                                         {"9to5", "x9to5"},
                                                         {"/dev/sda1", "x2fdev2fsda1"},
                                                         {"/mnt/a_fs", "x2fmnt2fa5ffs"},
                                                         {"a-b.c", "a-b2ec"},
                                                         {"-", "x-"},
                                                         {"a\xe9\x7f\n", "ae97f0a"},
                                                         {std::string("a\0b", 3), "a00b"},
                                                         {"\xff", "ff"},
                                                         {"Zz", "Zz"}};
    for (const auto& [in, out] : cases) {
        EXPECT_EQ(element(in), out) << in;
    }
}

// A later character is kept or made an entity; a first character that is not printable blanks the whole
// text.
TEST(Property, Texts) {
    const std::pair<std::string, std::string> cases[] = {{"\tA<b>", "     "},
                                                         {"a&b&&c", "a&amp;b&amp;&amp;c"},
                                                         {"a<b & c", "a&lt;b &amp; c"},
                                                         {"&lt;", "&amp;lt;"},
                                                         {"'\"x\"'", "&apos;&quot;x&quot;&apos;"},
                                                         {"a\x01\x7f\xc3\xa9", "a\x01\x7f\xc3\xa9"},
                                                         {"\x7f"
                                                          "ab",
                                                          "   "},
                                                         {"\xc3\xa9", "  "},
                                                         {" ~", " ~"},
                                                         {"", ""}};
    for (const auto& [in, out] : cases) {
        EXPECT_EQ(text(in), out) << in;
    }
}

TEST(Property, PrintWritesSevenLinesWithCleanedFields) {
    Property p("name<", "", "Label & co", "desc \"q\"", "General");
    std::ostringstream os;
    p.print(os, "x2fdev2fsda");
    EXPECT_EQ(os.str(),
              "  <x2fdev2fsda>\n"
              "    <Name>name&lt;</Name>\n"
              "    <DisplayName>Label &amp; co</DisplayName>\n"
              "    <Value></Value>\n"
              "    <Category>General</Category>\n"
              "    <Description>desc &quot;q&quot;</Description>\n"
              "  </x2fdev2fsda>\n");
}

// The texts other than the value are shared: a setter on a copy leaves the original as it was, and
// properties made on several threads at once read back whole, each text kept once.
TEST(Property, SharedTextsStayApart) {
    const Property original("key", "v", "Label", "Said once.", "General");
    Property copy = original;
    copy.setDescription("Said twice.");
    EXPECT_EQ(original.description() + copy.description(), "Said once.Said twice.");

    std::vector<Property> made[4];
    std::vector<std::thread> threads;
    for (std::vector<Property>& out : made) {
        threads.emplace_back([&out] {
            for (int i = 0; i < 2000; ++i) {
                const std::string n = std::to_string(i % 50);
                out.emplace_back("key" + n, n, "Label", "Described " + n, "General");
            }
        });
    }
    for (std::thread& t : threads) {
        t.join();
    }
    for (const std::vector<Property>& out : made) {
        for (std::size_t i = 0; i < out.size(); ++i) {
            ASSERT_EQ(out[i].description(), "Described " + out[i].value());
            ASSERT_EQ(&out[i].description(), &made[0][i].description());
        }
    }
}

TEST(Property, DebugDumpQuotesNameValueAndCategoryOnly) {
    vessa::test::LogCapture log;
    Property("accessType", "0", "Access Type", "Means.", "Debug").printToDebug();
    EXPECT_EQ(log.text(),
              "[Property.cpp] printToDebug: Enter\n"
              "[Property.cpp] printToDebug: Property \"accessType\"\n"
              "[Property.cpp] printToDebug:     Display Name: Access Type\n"
              "[Property.cpp] printToDebug:     Value       : \"0\"\n"
              "[Property.cpp] printToDebug:     Category    : \"Debug\"\n"
              "[Property.cpp] printToDebug:     Description : Means.\n"
              "[Property.cpp] printToDebug: Exit\n");
}

}  // namespace
