#include "support/Golden.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>

#include "support/TestSupport.h"

namespace vessa::test {

namespace {

bool updating() {
    const char* value = std::getenv("VESSA_UPDATE_GOLDEN");
    return value != nullptr && std::string(value) == "1";
}

}  // namespace

void expectGolden(const std::string& expectedPath, const std::string& actual) {
    std::ifstream in(expectedPath, std::ios::binary);
    const bool exists = in.good();
    const std::string expected = readFile(expectedPath);
    if (exists && expected == actual) {
        return;
    }
    if (updating()) {
        std::ofstream(expectedPath, std::ios::binary | std::ios::trunc) << actual;
        return;
    }
    EXPECT_TRUE(exists) << expectedPath << " is missing (VESSA_UPDATE_GOLDEN=1 writes it)";
    EXPECT_EQ(expected, actual) << expectedPath << " differs (VESSA_UPDATE_GOLDEN=1 rewrites it)";
}

std::string normalisedLog(const std::string& log) {
    static const std::regex freeCounts("(f_(bfree|bavail|ffree): )[0-9]+");
    static const std::regex sourceLine("\\) @ [0-9]+");
    return std::regex_replace(std::regex_replace(log, freeCounts, "$1*"), sourceLine, ") @ *");
}

std::string describeItems(vessa::target::Host& host) {
    std::ostringstream out;
    for (vessa::target::Storage* s : host.storage()) {
        out << "item " << s->index() << " type " << s->deviceStorageType() << "\n  name " << s->name()
            << "\n  path " << s->path() << "\n  size " << s->size() << "\n  inquiry \"" << s->inquiry()
            << "\"\n  exclusions " << s->exclusionsList() << " overrides " << s->exclusionOverrides() << " \""
            << s->exclusionString() << "\"\n  sort name " << s->sortName() << "\n";
        for (const auto& [key, property] : s->properties()) {
            out << "  property " << key << "\n";
            property.print(out, "p");
        }
    }
    return out.str();
}

}  // namespace vessa::test
