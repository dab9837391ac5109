#include "cli/JsonWriter.h"

#include <cstdio>

namespace vessa::cli {

namespace {

// The length of the valid UTF-8 sequence at `i`, or 0.
std::size_t utf8Length(const std::string& s, std::size_t i) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char c = byte(i);
    std::size_t n = 0;
    unsigned int min = 0, code = 0;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2, code = c & 0x1Fu, min = 0x80;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3, code = c & 0x0Fu, min = 0x800;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4, code = c & 0x07u, min = 0x10000;
    } else {
        return 0;
    }
    if (i + n > s.size()) {
        return 0;
    }
    for (std::size_t k = 1; k < n; ++k) {
        if ((byte(i + k) & 0xC0u) != 0x80u) {
            return 0;
        }
        code = (code << 6) | (byte(i + k) & 0x3Fu);
    }
    const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
    return code < min || code > 0x10FFFF || surrogate ? 0 : n;
}

}  // namespace

void JsonWriter::indent(std::size_t level) {
    buffer_ += '\n';
    buffer_.append(level * 2, ' ');
    spill();
}

void JsonWriter::place() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (empty_.empty()) {
        return;
    }
    if (!empty_.back()) {
        buffer_ += ',';
    }
    empty_.back() = false;
    indent(empty_.size());
}

void JsonWriter::open(char bracket) {
    place();
    buffer_ += bracket;
    empty_.push_back(true);
}

void JsonWriter::close(char bracket) {
    const bool wasEmpty = empty_.back();
    empty_.pop_back();
    if (!wasEmpty) {
        indent(empty_.size());
    }
    buffer_ += bracket;
}

void JsonWriter::key(const std::string& name) {
    place();
    quoted(name);
    buffer_ += ": ";
    afterKey_ = true;
}

void JsonWriter::value(const std::string& text) {
    place();
    quoted(text);
}

void JsonWriter::value(long long number) {
    place();
    buffer_ += std::to_string(number);
}

void JsonWriter::value(unsigned long long number) {
    place();
    buffer_ += std::to_string(number);
}

void JsonWriter::value(bool flag) {
    place();
    buffer_ += flag ? "true" : "false";
}

void JsonWriter::value(const std::vector<std::string>& texts) {
    beginArray();
    for (const std::string& t : texts) {
        value(t);
    }
    endArray();
}

void JsonWriter::quoted(const std::string& text) {
    std::string& out = buffer_;
    out += '"';
    for (std::size_t i = 0; i < text.size();) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c >= 0x80) {
            const std::size_t n = utf8Length(text, i);
            if (n == 0) {
                out += "\xEF\xBF\xBD";
                ++i;
            } else {
                out.append(text, i, n);
                i += n;
            }
            continue;
        }
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\b':
                out += "\\b";
                break;
            case '\f':
                out += "\\f";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                    out += escaped;
                } else {
                    out += static_cast<char>(c);
                }
        }
        ++i;
    }
    out += '"';
}

}  // namespace vessa::cli
