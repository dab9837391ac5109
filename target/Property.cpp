#include "target/Property.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <memory>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "platform/Log.h"
#include "platform/Str.h"

namespace vessa::target {

namespace {

bool writtenAsItStands(const std::string& text);

// The texts sit in blocks that never move, found through a fixed table of block addresses, so that a
// text is read without the lock while others are added; a table of numbers, open-addressed, finds a
// text's number from its content. Each text costs its string, its characters and a table place or two,
// not a node of a set. The pool is made on first use and never destroyed, so that a property that
// outlives static destruction (one held by a static object) still reads valid texts.
class TextPool {
  public:
    static constexpr std::uint32_t kBlockBits = 12;
    static constexpr std::uint32_t kBlockSize = 1u << kBlockBits;
    static constexpr std::uint32_t kBlocks = 1u << 16;  // 268 million texts, numbers below 2^28

    static TextPool& instance() {
        static TextPool* const pool = new TextPool;
        return *pool;
    }

    // Set in a text's number when XML takes the text as it stands (no character to escape or replace),
    // found once when the text is pooled: the report and the list write the same texts a million times.
    static constexpr std::uint32_t kAsWritten = 1u << 31;

    const std::string& text(std::uint32_t number) const {
        number &= ~kAsWritten;
        return blocks_[number >> kBlockBits].load(std::memory_order_acquire)[number & (kBlockSize - 1)];
    }

    // Under one lock: a property's four texts cost one lock, not four.
    class Lookup {
      public:
        explicit Lookup(TextPool& pool) : pool_(pool), lock_(pool.mutex_) {}
        std::uint32_t operator()(const std::string& t) { return t.empty() ? 0 : pool_.find(t); }

      private:
        TextPool& pool_;
        std::lock_guard<std::mutex> lock_;
    };

  private:
    static constexpr std::uint32_t kFree = 0;  // number 0 is the empty text, never in the table

    TextPool() : blocks_(new std::atomic<std::string*>[kBlocks]) {
        for (std::uint32_t i = 0; i < kBlocks; ++i) {
            blocks_[i].store(nullptr, std::memory_order_relaxed);
        }
        add("");
        slots_.assign(1024, kFree);
    }

    std::uint32_t find(const std::string& t) {
        const std::size_t mask = slots_.size() - 1;
        for (std::size_t at = std::hash<std::string>()(t) & mask;; at = (at + 1) & mask) {
            if (slots_[at] == kFree) {
                const std::uint32_t number = add(t);
                slots_[at] = number;
                if (4 * (count_ - 1) > 3 * slots_.size()) {
                    grow();
                }
                return number;
            }
            if (text(slots_[at]) == t) {
                return slots_[at];
            }
        }
    }

    std::uint32_t add(const std::string& t) {
        if (count_ == kBlockSize * kBlocks) {
            throw std::length_error("more distinct property texts than the pool holds");
        }
        const std::uint32_t number = count_;
        std::string* block = blocks_[number >> kBlockBits].load(std::memory_order_relaxed);
        if (block == nullptr) {
            block = new std::string[kBlockSize];
            blocks_[number >> kBlockBits].store(block, std::memory_order_release);
        }
        block[number & (kBlockSize - 1)] = t;
        ++count_;
        return !t.empty() && writtenAsItStands(t) ? number | kAsWritten : number;
    }

    void grow() {
        std::vector<std::uint32_t> larger(slots_.size() * 2, kFree);
        const std::size_t mask = larger.size() - 1;
        for (const std::uint32_t number : slots_) {
            if (number != kFree) {
                std::size_t at = std::hash<std::string>()(text(number)) & mask;
                while (larger[at] != kFree) {
                    at = (at + 1) & mask;
                }
                larger[at] = number;
            }
        }
        slots_.swap(larger);
    }

    std::mutex mutex_;
    const std::unique_ptr<std::atomic<std::string*>[]> blocks_;
    std::uint32_t count_ = 0;
    std::vector<std::uint32_t> slots_;
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

std::uint32_t Property::pooled(const std::string& text) {
    return TextPool::Lookup(TextPool::instance())(text);
}

const std::string& Property::text(std::uint32_t number) {
    return TextPool::instance().text(number);
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

// Whether XML takes `text` as it stands: neither cleanForXmlText nor XML's own limits change it.
bool writtenAsItStands(const std::string& text) {
    return text.empty() || (std::isprint(static_cast<unsigned char>(text[0])) &&
                            text.find_first_of("&<>\"'") == std::string::npos && xmlCarries(text));
}

// Appends `text` as cleanForXmlText leaves it, and then as XML can carry it (the cleaning keeps control
// characters after a printable first one). Most texts need neither, and are not copied for them.
void appendClean(std::string& out, const std::string& text, bool asItStands) {
    if (asItStands || writtenAsItStands(text)) {
        out += text;
        return;
    }
    std::string cleaned = text;
    Property::cleanForXmlText(cleaned);
    out += xmlCarries(cleaned) ? cleaned : xmlCarried(cleaned);
}

}  // namespace

void Property::print(std::ostream& os, const std::string& tableName) const {
    const auto asItStands = [](std::uint32_t number) { return (number & TextPool::kAsWritten) != 0; };
    const std::tuple<const char*, const std::string*, bool> columns[] = {
        {"Name", &text(name_), asItStands(name_)},
        {"DisplayName", &text(displayName_), asItStands(displayName_)},
        {"Value", &value_, false},
        {"Category", &text(category_), asItStands(category_)},
        {"Description", &text(description_), asItStands(description_)}};
    std::string out;  // one write to the stream for the whole row
    out.reserve(160 + value_.size());
    out.append("  <").append(tableName).append(">\n");
    for (const auto& [column, text, plain] : columns) {
        out.append("    <").append(column).append(">");
        appendClean(out, *text, plain);
        out.append("</").append(column).append(">\n");
    }
    out.append("  </").append(tableName).append(">\n");
    os.write(out.data(), static_cast<std::streamsize>(out.size()));
}

void Property::printToDebug() {
    VESSA_TRACE("Property.cpp", "printToDebug");
    VESSA_LOG << "Property \"" << text(name_) << "\"";
    VESSA_LOG << "    Display Name: " << text(displayName_);
    VESSA_LOG << "    Value       : \"" << value_ << "\"";
    VESSA_LOG << "    Category    : \"" << text(category_) << "\"";
    VESSA_LOG << "    Description : " << text(description_);
}

}  // namespace vessa::target
