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

void Property::print(std::ostream& os, const std::string& tableName) const {
    std::string name = name_;
    std::string displayName = displayName_;
    std::string value = value_;
    std::string category = category_;
    std::string description = description_;
    cleanForXmlText(name);
    cleanForXmlText(displayName);
    cleanForXmlText(value);
    cleanForXmlText(category);
    cleanForXmlText(description);
    os << "  <" << tableName << ">" << std::endl;
    os << "    <Name>" << name << "</Name>" << std::endl;
    os << "    <DisplayName>" << displayName << "</DisplayName>" << std::endl;
    os << "    <Value>" << value << "</Value>" << std::endl;
    os << "    <Category>" << category << "</Category>" << std::endl;
    os << "    <Description>" << description << "</Description>" << std::endl;
    os << "  </" << tableName << ">" << std::endl;
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
