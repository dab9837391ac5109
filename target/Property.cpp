#include "target/Property.h"

#include <cctype>

#include "platform/Log.h"

namespace vessa::target {

Property::Property(const std::string& name, const std::string& value, const std::string& displayName,
                   const std::string& description, const std::string& category)
    : displayName_(displayName), name_(name), value_(value), description_(description), category_(category) {}

Property::Property(const Property&) = default;
Property& Property::operator=(const Property&) = default;
Property::~Property() = default;

// Both rules build a new string in one pass: replacing in place, character by character, costs time in
// the square of the length, and a hostile snapshot can hand us values of many megabytes.
void Property::cleanForXmlElement(std::string& s) {
    std::string out;
    out.reserve(s.size() + 1);
    for (const char ch : s) {
        const unsigned char c = static_cast<unsigned char>(ch);
        const bool keep =
            (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-';
        if (keep) {
            out += ch;
        } else {
            static const char kHex[] = "0123456789abcdef";  // as "%02x" writes the byte
            out += kHex[c >> 4];
            out += kHex[c & 0xf];
        }
    }
    // An empty name has no first character; its terminating NUL is not alphabetic either.
    if (out.empty() || !std::isalpha(static_cast<unsigned char>(out[0]))) {
        out.insert(0, "x");
    }
    s.swap(out);
}

void Property::cleanForXmlText(std::string& s) {
    // Only the first character decides: a text that starts unprintable is blanked whole, one that
    // starts printable keeps any control characters further on.
    if (!s.empty() && !std::isprint(static_cast<unsigned char>(s[0]))) {
        s.assign(s.size(), ' ');
        return;
    }
    // The entities hold none of the five characters, so one pass gives what one pass per character
    // (ampersands first) would: each character of the input is escaped exactly once.
    std::string out;
    out.reserve(s.size());
    for (const char c : s) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\'':
                out += "&apos;";
                break;
            default:
                out += c;
        }
    }
    s.swap(out);
}

namespace {

// Writes `text` as cleanForXmlText leaves it; most texts need no change, and are not copied for it.
void writeClean(std::ostream& os, const std::string& text) {
    if (text.empty() ||
        (std::isprint(static_cast<unsigned char>(text[0])) && text.find_first_of("&<>\"'") == std::string::npos)) {
        os << text;
        return;
    }
    std::string cleaned = text;
    Property::cleanForXmlText(cleaned);
    os << cleaned;
}

}  // namespace

void Property::print(std::ostream& os, const std::string& tableName) const {
    os << "  <" << tableName << ">" << '\n';
    const std::pair<const char*, const std::string*> columns[] = {{"Name", &name_},
                                                                  {"DisplayName", &displayName_},
                                                                  {"Value", &value_},
                                                                  {"Category", &category_},
                                                                  {"Description", &description_}};
    for (const auto& [column, text] : columns) {
        os << "    <" << column << ">";
        writeClean(os, *text);
        os << "</" << column << ">" << '\n';
    }
    os << "  </" << tableName << ">" << '\n';
}

void Property::printToDebug() {
    VESSA_TRACE("Property.cpp", "printToDebug");
    VESSA_LOG << "Property \"" << name_ << "\"";
    VESSA_LOG << "    Display Name: " << displayName_;
    VESSA_LOG << "    Value       : \"" << value_ << "\"";
    VESSA_LOG << "    Category    : \"" << category_ << "\"";
    VESSA_LOG << "    Description : " << description_;
}

}  // namespace vessa::target
