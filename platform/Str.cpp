#include "platform/Str.h"

#include <locale>
#include <sstream>

namespace vessa::util::str {

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

[[noreturn]] void failFrom(const std::string& text) {
    throw Exception("conversion from \"" + text + "\" failed");
}

template <class T>
void read(T& dest, const std::string& text, std::ios_base::fmtflags flags) {
    std::istringstream in(trim(text));
    in.imbue(std::locale::classic());
    in.flags(flags);
    T value{};
    in >> value;
    if (in.fail()) {
        failFrom(text);
    }
    dest = value;
}

template <class T>
std::string write(T value, std::ios_base::fmtflags flags) {
    if (flags == std::ios_base::dec) {
        // What a classic-locale stream writes in plain decimal, without the cost of making a stream:
        // discovery formats every number of every device this way.
        return std::to_string(value);
    }
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out.flags(flags);
    out << value;
    if (out.fail()) {
        throw Exception("conversion to ::std::string failed");
    }
    return out.str();
}

}  // namespace

Exception::Exception(const std::string& why) : vessa::Exception(why, sal::err::kConversion) {}

const char* Exception::typeName() const noexcept {
    return "vessa::util::str::Exception";
}

std::string trim(const std::string& s) {
    std::string::size_type b = 0;
    std::string::size_type e = s.size();
    while (b < e && isSpace(s[b])) {
        ++b;
    }
    while (e > b && isSpace(s[e - 1])) {
        --e;
    }
    return s.substr(b, e - b);
}

std::string toLower(const std::string& s) {
    std::string out(s);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        }
    }
    return out;
}

void to(int& dest, const std::string& text, std::ios_base::fmtflags flags) {
    read(dest, text, flags);
}
void to(unsigned int& dest, const std::string& text, std::ios_base::fmtflags flags) {
    read(dest, text, flags);
}
void to(long long& dest, const std::string& text, std::ios_base::fmtflags flags) {
    read(dest, text, flags);
}
void to(unsigned long long& dest, const std::string& text, std::ios_base::fmtflags flags) {
    read(dest, text, flags);
}
void to(unsigned short& dest, const std::string& text, std::ios_base::fmtflags flags) {
    read(dest, text, flags);
}

void to(bool& dest, const std::string& text, std::ios_base::fmtflags flags) {
    int value = 0;
    try {
        read(value, text, flags);
    } catch (const Exception&) {
        failFrom(text);
    }
    if (value != 0 && value != 1) {
        failFrom(text);
    }
    dest = value == 1;
}

std::string from(int value, std::ios_base::fmtflags flags) {
    return write(value, flags);
}
std::string from(unsigned int value, std::ios_base::fmtflags flags) {
    return write(value, flags);
}
std::string from(long value, std::ios_base::fmtflags flags) {
    return write(value, flags);
}
std::string from(unsigned long value, std::ios_base::fmtflags flags) {
    return write(value, flags);
}
std::string from(long long value, std::ios_base::fmtflags flags) {
    return write(value, flags);
}
std::string from(unsigned long long value, std::ios_base::fmtflags flags) {
    return write(value, flags);
}
std::string from(unsigned short value, std::ios_base::fmtflags flags) {
    return write(value, flags);
}

std::size_t utf8Length(const std::string& s, std::size_t i, unsigned int* code) {
    const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char c = byte(i);
    std::size_t n = 0;
    unsigned int min = 0, value = 0;
    if (c < 0x80) {
        n = 1, value = c;
    } else if (c >= 0xC2 && c <= 0xDF) {
        n = 2, value = c & 0x1Fu, min = 0x80;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3, value = c & 0x0Fu, min = 0x800;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4, value = c & 0x07u, min = 0x10000;
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
        value = (value << 6) | (byte(i + k) & 0x3Fu);
    }
    if (value < min || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        return 0;
    }
    if (code != nullptr) {
        *code = value;
    }
    return n;
}

}  // namespace vessa::util::str
