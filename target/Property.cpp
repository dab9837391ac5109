#include "target/Property.h"

#include <cctype>
#include <cstdio>

#include "platform/Log.h"

namespace vessa::target {

Property::Property(const std::string& name, const std::string& value, const std::string& displayName,
                   const std::string& description, const std::string& category)
    : displayName_(displayName), name_(name), value_(value), description_(description), category_(category) {}

Property::Property(const Property&) = default;
Property& Property::operator=(const Property&) = default;
Property::~Property() = default;

void Property::cleanForXmlElement(std::string& s) {
    for (std::string::size_type i = 0; i < s.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(s[i]);
        const bool keep =
            (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-';
        if (!keep) {
            char hex[3];
            std::snprintf(hex, sizeof hex, "%02x", c);
            // The second hex digit is examined next and always kept.
            s.replace(i, 1, hex, 2);
        }
    }
    // An empty name has no first character; its terminating NUL is not alphabetic either.
    if (s.empty() || !std::isalpha(static_cast<unsigned char>(s[0]))) {
        s.insert(0, "x");
    }
}

namespace {

void replaceAll(std::string& s, char from, const char* to) {
    for (std::string::size_type pos = s.find(from); pos != std::string::npos; pos = s.find(from, pos + 1)) {
        s.replace(pos, 1, to);
    }
}

}  // namespace

void Property::cleanForXmlText(std::string& s) {
    // Only the first character decides: a text that starts unprintable is blanked whole, one that
    // starts printable keeps any control characters further on.
    if (!s.empty() && !std::isprint(static_cast<unsigned char>(s[0]))) {
        s.assign(s.size(), ' ');
    }
    // Ampersands first, so that the entities written below are not escaped again.
    replaceAll(s, '&', "&amp;");
    replaceAll(s, '<', "&lt;");
    replaceAll(s, '>', "&gt;");
    replaceAll(s, '"', "&quot;");
    replaceAll(s, '\'', "&apos;");
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
