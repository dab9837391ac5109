#include "target/Property.h"

#include <algorithm>
#include <cctype>

#include "platform/Log.h"
#include "platform/Str.h"

namespace vessa::target {

Property::Property(const std::string& name, const std::string& value, const std::string& displayName,
                   const std::string& description, const std::string& category)
    : name_(name),
      value_(value),
      texts_(std::make_shared<const Texts>(Texts{displayName, description, category})) {}

Property::Property(const std::string& name, const std::string& value, std::shared_ptr<const Texts> texts)
    : name_(name), value_(value), texts_(std::move(texts)) {}

Property::Texts& Property::ownTexts() {
    auto own = std::make_shared<Texts>(*texts_);
    texts_ = own;
    return *own;
}

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

// Whether `text` holds only characters that an XML 1.0 document can carry: tab, line feed, carriage
// return, U+0020 and above in valid UTF-8, but not U+FFFE or U+FFFF.
bool xmlCarries(const std::string& text) {
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c < 0x80) {
            ++i;
            continue;
        }
        unsigned int code = 0;
        const std::size_t n = util::str::utf8Length(text, i, &code);
        if (n == 0 || (code < 0x20 && code != '\t' && code != '\n' && code != '\r') || code == 0xFFFE ||
            code == 0xFFFF) {
            return false;
        }
        i += n;
    }
    return true;
}

// `text` with every character that XML 1.0 cannot carry, and every byte that starts no valid UTF-8
// character, written as U+FFFD: a reader sees that something was there, and the document stays
// well-formed.
std::string xmlCarried(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        unsigned int code = 0;
        const std::size_t n = util::str::utf8Length(text, i, &code);
        if (n == 0 || (code < 0x20 && code != '\t' && code != '\n' && code != '\r') || code == 0xFFFE ||
            code == 0xFFFF) {
            out += "\xEF\xBF\xBD";
            i += std::max<std::size_t>(n, 1);
        } else {
            out.append(text, i, n);
            i += n;
        }
    }
    return out;
}

// Writes `text` as cleanForXmlText leaves it, and then as XML can carry it (the cleaning keeps control
// characters after a printable first one). Most texts need neither, and are not copied for them.
void writeClean(std::ostream& os, const std::string& text) {
    const bool clean = text.empty() || (std::isprint(static_cast<unsigned char>(text[0])) &&
                                        text.find_first_of("&<>\"'") == std::string::npos);
    if (clean && xmlCarries(text)) {
        os << text;
        return;
    }
    std::string cleaned = text;
    if (!clean) {
        Property::cleanForXmlText(cleaned);
    }
    if (xmlCarries(cleaned)) {
        os << cleaned;
    } else {
        os << xmlCarried(cleaned);
    }
}

}  // namespace

void Property::print(std::ostream& os, const std::string& tableName) const {
    os << "  <" << tableName << ">" << '\n';
    const std::pair<const char*, const std::string*> columns[] = {{"Name", &name_},
                                                                  {"DisplayName", &texts_->displayName},
                                                                  {"Value", &value_},
                                                                  {"Category", &texts_->category},
                                                                  {"Description", &texts_->description}};
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
    VESSA_LOG << "    Display Name: " << texts_->displayName;
    VESSA_LOG << "    Value       : \"" << value_ << "\"";
    VESSA_LOG << "    Category    : \"" << texts_->category << "\"";
    VESSA_LOG << "    Description : " << texts_->description;
}

}  // namespace vessa::target
