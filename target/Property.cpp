#include "target/Property.h"

#include <cctype>
#include <mutex>
#include <unordered_set>

#include "platform/Log.h"

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
    if (text.empty() || (std::isprint(static_cast<unsigned char>(text[0])) &&
                         text.find_first_of("&<>\"'") == std::string::npos)) {
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
