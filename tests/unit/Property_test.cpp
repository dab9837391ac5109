#include "target/Property.h"

#include <gtest/gtest.h>

#include <sstream>

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

TEST(Property, ElementNames) {
    const struct {
        std::string in;
        std::string out;
    } cases[] = {
        {"", "x"},
        {"sdb", "sdb"},
        {"9to5", "x9to5"},
        {"a_b", "a5fb"},
        {"/dev/sda1", "x2fdev2fsda1"},
        {"/mnt/a_fs", "x2fmnt2fa5ffs"},
        {"a-b", "a-b"},
        {"-a", "x-a"},
        {std::string("\xE9"), "e9"},
        {std::string("a\xE9"), "ae9"},
        {"a b.c", "a20b2ec"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(element(c.in), c.out) << c.in;
    }
}

// Every byte value, alone and behind a letter: kept if it is a letter, digit or "-", else exactly its
// two lower-case hex digits.
TEST(Property, ElementNameOfEveryByte) {
    for (int b = 0; b < 256; ++b) {
        const char c = static_cast<char>(b);
        const bool keep =
            (b >= '0' && b <= '9') || (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') || b == '-';
        char hex[3];
        std::snprintf(hex, sizeof hex, "%02x", b);
        const std::string body = keep ? std::string(1, c) : std::string(hex);
        EXPECT_EQ(element(std::string("a") + c), "a" + body) << b;
        const bool startsAlpha = (body[0] >= 'a' && body[0] <= 'z') || (body[0] >= 'A' && body[0] <= 'Z');
        EXPECT_EQ(element(std::string(1, c)), (startsAlpha ? "" : "x") + body) << b;
    }
}

TEST(Property, Texts) {
    const struct {
        std::string in;
        std::string out;
    } cases[] = {
        {"\tA<b>", "     "},
        {"A\tB", "A\tB"},
        {"a&b&&c", "a&amp;b&amp;&amp;c"},
        {"x\"y'z", "x&quot;y&apos;z"},
        {"a<b & c", "a&lt;b &amp; c"},
        {"&lt;", "&amp;lt;"},
        {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(text(c.in), c.out) << c.in;
    }
}

// Every byte value as the first character and as a later one.
TEST(Property, TextOfEveryByte) {
    for (int b = 0; b < 256; ++b) {
        const char c = static_cast<char>(b);
        std::string entity;
        switch (c) {
            case '&':
                entity = "&amp;";
                break;
            case '<':
                entity = "&lt;";
                break;
            case '>':
                entity = "&gt;";
                break;
            case '"':
                entity = "&quot;";
                break;
            case '\'':
                entity = "&apos;";
                break;
            default:
                entity = std::string(1, c);
        }
        const bool printable = b >= 0x20 && b < 0x7f;
        EXPECT_EQ(text(std::string("a") + c + "b"), "a" + entity + "b") << b;
        EXPECT_EQ(text(std::string(1, c) + "ab"), printable ? entity + "ab" : "   ") << b;
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

TEST(Property, DebugDumpQuotesNameValueAndCategoryOnly) {
    vessa::test::LogCapture log;
    Property p("accessType", "0", "Access Type", "Means.", "Debug");
    p.printToDebug();
    std::vector<std::string> expected = {"Enter",
                                         "Property \"accessType\"",
                                         "    Display Name: Access Type",
                                         "    Value       : \"0\"",
                                         "    Category    : \"Debug\"",
                                         "    Description : Means.",
                                         "Exit"};
    EXPECT_EQ(log.messages(), expected);
    EXPECT_EQ(log.lines().front(), "[Property.cpp] printToDebug: Enter");
}

}  // namespace
