#include "cli/ListOutput.h"

#include <gtest/gtest.h>

namespace {

TEST(ListOutput, SizesTypeWordsAndJsonText) {
    const std::pair<unsigned long long, const char*> sizes[] = {
        {0, "0 B"},
        {1023, "1023 B"},
        {1024, "1.0 KiB"},
        {1536, "1.5 KiB"},
        {1073741823ull, "1.0 GiB"},  // 1023.99.. MiB would show as 1024.0 MiB
        {1073741824ull, "1.0 GiB"},
        {274877906944ull, "256.0 GiB"},
        {~0ull, "16.0 EiB"}};
    for (const auto& [bytes, text] : sizes) {
        EXPECT_EQ(vessa::cli::humanSize(bytes), text) << bytes;
    }

    const std::pair<const char*, unsigned int> types[] = {
        {"disk", 36},    {"logical", 26},       {"fs", 1}, {"all", 31},
        {"disk,fs", 37}, {"fs,logical,fs", 27}, {"5", 5}};
    for (const auto& [text, mask] : types) {
        unsigned int got = 0;
        std::string why;
        EXPECT_TRUE(vessa::cli::parseTypes(text, got, why)) << text;
        EXPECT_EQ(got, mask) << text;
    }
    for (const char* bad : {"", "disks", "disk,", "-1", "99999999999999999999"}) {
        unsigned int got = 7;
        std::string why;
        EXPECT_FALSE(vessa::cli::parseTypes(bad, got, why)) << bad;
        EXPECT_EQ(got, 7u) << bad;
        EXPECT_FALSE(why.empty()) << bad;
    }

    std::ostringstream out;
    {
        vessa::cli::JsonWriter json(out);
        json.beginObject();
        json.key("text");
        json.value(std::string("a\"\\\n\x01 \xc3\xa9 \xff\xc3 \xed\xa0\x80", 15));
        json.key("empty");
        json.value(std::vector<std::string>{});
        json.endObject();
        json.finish();
    }
    // Quotes, backslashes and control characters escaped, valid UTF-8 kept, anything else U+FFFD.
    EXPECT_EQ(out.str(),
              "{\n  \"text\": \"a\\\"\\\\\\n\\u0001 \xc3\xa9 \xef\xbf\xbd\xef\xbf\xbd "
              "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\",\n  \"empty\": []\n}\n");
}

}  // namespace
