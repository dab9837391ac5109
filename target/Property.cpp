#include "target/Property.h"

#include <algorithm>
#include <cctype>
#include <mutex>
#include <unordered_set>

#include "platform/Log.h"
#include "platform/Str.h"

namespace vessa::target {

namespace {

// Texts of an unordered_set are nodes of their own, so a text's address survives the set's growth.
// The pool is made on first use and never destroyed, so that a property that outlives static
// destruction (one held by a static object) still reads valid texts.
class TextPool {
  public:
    // Under one lock: a property's four texts cost one lock, not four.
    class Lookup {
      public:
        explicit Lookup(TextPool& pool) : pool_(pool), lock_(pool.mutex_) {}
        const std::string* operator()(const std::string& text) {
            return text.empty() ? &pool_.empty_ : &*pool_.texts_.insert(text).first;
        }

      private:
        TextPool& pool_;
        std::lock_guard<std::mutex> lock_;
    };

    static TextPool& instance() {
        static TextPool* const pool = new TextPool;
        return *pool;
    }

  private:
    std::mutex mutex_;
    std::unordered_set<std::string> texts_;
    const std::string empty_;
};

}  // namespace

Property::Property(const std::string& name, const std::string& value, const std::string& displayName,
                   const std::string& description, const std::string& category)
    : value_(value) {
    TextPool::Lookup pooled(TextPool::instance());
    displayName_ = pooled(displayName);
    name_ = pooled(name);
    description_ = pooled(description);
    category_ = pooled(category);
}

const std::string* Property::pooled(const std::string& text) {
    return TextPool::Lookup(TextPool::instance())(text);
}

Property::Property(const Property&) = default;
Property& Property::operator=(const Property&) = default;
Property::Property(Property&&) noexcept = default;
Property& Property::operator=(Property&&) noexcept = default;
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
    const std::pair<const char*, const std::string*> columns[] = {{"Name", name_},
                                                                  {"DisplayName", displayName_},
                                                                  {"Value", &value_},
                                                                  {"Category", category_},
                                                                  {"Description", description_}};
    for (const auto& [column, text] : columns) {
        os << "    <" << column << ">";
        writeClean(os, *text);
        os << "</" << column << ">" << '\n';
    }
    os << "  </" << tableName << ">" << '\n';
}

void Property::printToDebug() {
    VESSA_TRACE("Property.cpp", "printToDebug");
    VESSA_LOG << "Property \"" << *name_ << "\"";
    VESSA_LOG << "    Display Name: " << *displayName_;
    VESSA_LOG << "    Value       : \"" << value_ << "\"";
    VESSA_LOG << "    Category    : \"" << *category_ << "\"";
    VESSA_LOG << "    Description : " << *description_;
}

}  // namespace vessa::target
