#include "cli/ErrorText.h"

#include "platform/Exception.h"
#include "target/ListingLineError.h"

namespace vessa::cli {

namespace {

constexpr std::size_t kShownLine = 160;

// Text for a terminal: one line, no escape sequences, not longer than `limit` characters.
std::string printable(const std::string& text, std::size_t limit) {
    std::string out;
    for (char c : text.substr(0, limit)) {
        out += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
    }
    if (text.size() > limit) {
        out += "... (" + std::to_string(text.size()) + " characters)";
    }
    return out;
}

}  // namespace

std::string oneLine(const std::string& text) {
    return printable(text, std::string::npos);
}

std::string errorText(const std::exception& e) {
    if (const auto* listing = dynamic_cast<const target::ListingLineError*>(&e)) {
        return "listing line " + std::to_string(listing->lineNumber()) + " \"" +
               printable(listing->line(), kShownLine) + "\": " + printable(listing->why(), kShownLine);
    }
    if (const auto* base = dynamic_cast<const vessa::Exception*>(&e)) {
        return std::string(base->typeName()) + ": " + printable(base->why(), std::string::npos);
    }
    return printable(e.what(), std::string::npos);
}

}  // namespace vessa::cli
