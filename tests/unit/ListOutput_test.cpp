#include "cli/ListOutput.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "cli/JsonWriter.h"
#include "platform/Log.h"
#include "support/TestSupport.h"

namespace {

// Characters of `line` before `text`, or npos.
std::size_t columnOf(const std::string& line, const std::string& text) {
    const std::size_t at = line.find(text);
    if (at == std::string::npos) {
        return at;
    }
    std::size_t column = 0;
    for (std::size_t i = 0; i < at; ++i) {
        column += (static_cast<unsigned char>(line[i]) & 0xC0) != 0x80;
    }
    return column;
}

// Device text from a snapshot or another host reaches the terminal escaped, each byte of a control
// character or of invalid UTF-8 as \xNN, valid UTF-8 kept; the columns after it still line up.
// (Sizes, the words of --type and how JSON writes a text are the records of tests/data/cli.)
TEST(ListOutput, TableAndTreeShowDeviceTextEscaped) {
    const std::pair<std::string, std::string> texts[] = {
        {"\x1b]0;owned\a", "\\x1b]0;owned\\x07"},
        {"\x1b[2J", "\\x1b[2J"},
        {"a\x1b[8m", "a\\x1b[8m"},
        {std::string("n\0l", 3), "n\\x00l"},
        {"\x7f\xc2\x9b\xff\xc3", "\\x7f\\xc2\\x9b\\xff\\xc3"},
        {"\xc3\xa9t\xc3\xa9 \xe2\x94\x80", "\xc3\xa9t\xc3\xa9 \xe2\x94\x80"}};
    for (const auto& [text, shown] : texts) {
        vessa::target::Storage s(vessa::target::Storage::discoveredBlockDevice, text, "/dev/" + text, 1, 0,
                                 text, 0, {});
        vessa::target::DiscoveryReport report;
        report.devices.push_back({0, text, "", 1, {0}});
        std::ostringstream table, tree;
        vessa::cli::printTable(table, {&s});
        vessa::cli::printTree(tree, {&s}, report, nullptr);
        for (const std::string& out : {table.str(), tree.str()}) {
            EXPECT_EQ(out.find_first_of(std::string("\x00\x01\x07\x1b\x7f\x9b\xff", 7)), std::string::npos)
                << out;
            const std::string header = out.substr(0, out.find('\n')), line = out.substr(header.size() + 1);
            EXPECT_NE(line.find("/dev/" + shown + "  "), std::string::npos) << out;
            EXPECT_EQ(columnOf(header, "SIZE"), columnOf(line, "1 B")) << out;
            EXPECT_EQ(columnOf(header, "INQUIRY"), columnOf(line, shown + "\n")) << out;
        }
    }
}

// Elements written by two threads in blocks read, and log, as one thread writes them, at every block
// boundary and in both layouts; an exception on either thread comes out of elements() with both
// threads done.
TEST(JsonWriter, ElementsOnTwoThreadsAsOneWritesThem) {
    const auto element = [](vessa::cli::JsonWriter& w, std::size_t i) {
        if (i == 4200 || i == 10000 + 10) {
            throw std::runtime_error("element " + std::to_string(i));
        }
        VESSA_LOG_AT("test", "element") << i;
        w.beginObject();
        w.key("i");
        w.value(static_cast<unsigned long long>(i));
        w.key("inner");
        w.value(std::vector<std::string>(i % 3, "x"));
        w.endObject();
    };
    const auto document = [&](vessa::cli::JsonWriter::Layout layout, std::size_t count, bool split) {
        std::ostringstream out;
        const vessa::test::LogCapture logged;
        vessa::cli::JsonWriter w(out, layout);
        w.beginObject();
        w.key("list");
        w.beginArray();
        if (split) {
            w.elements(count, element);
        } else {
            for (std::size_t i = 0; i < count; ++i) {
                element(w, i);
            }
        }
        w.endArray();
        w.endObject();
        w.finish();
        return out.str() + logged.text();
    };
    for (const auto layout :
         {vessa::cli::JsonWriter::Layout::Indented, vessa::cli::JsonWriter::Layout::OneLine}) {
        for (const std::size_t count : {0, 1, 63, 64, 65, 128, 129, 650}) {
            EXPECT_EQ(document(layout, count, true), document(layout, count, false)) << count;
        }
        EXPECT_THROW(document(layout, 5000, true),
                     std::runtime_error);  // element 4200, block 65: the second thread's
    }
    std::ostringstream out;
    vessa::cli::JsonWriter w(out);
    w.beginArray();
    EXPECT_THROW(w.elements(20000, [&](vessa::cli::JsonWriter& e, std::size_t i) { element(e, i + 9990); }),
                 std::runtime_error);  // element 20 of the list: this thread's
}

}  // namespace
