// Text conversions of the base library: decimal (or other stream-formatted) text to and from numbers.
//
//   to(dest, text, flags)  trims `text` of white space at both ends and reads a value from it with a
//                          string stream set to `flags`. Characters after a valid value are ignored
//                          ("12]" gives 12). A bool is read as a number: 0 is false, 1 true, anything
//                          else fails. On failure it throws Exception with the message
//                          "conversion from \"<text as given, untrimmed>\" failed"; `dest` is then
//                          unchanged.
//   from(value, flags)     writes `value` with a string stream set to `flags`; throws Exception with
//                          "conversion to ::std::string failed" if the stream fails.
#pragma once

#include <cstddef>
#include <ios>
#include <string>

#include "platform/Exception.h"

namespace vessa::util::str {

class Exception : public vessa::Exception {
  public:
    explicit Exception(const std::string& why);
    const char* typeName() const noexcept override;
};

// White space as the classic locale's isspace sees it: blank, \t, \n, \v, \f, \r.
std::string trim(const std::string& s);
std::string toLower(const std::string& s);

void to(int& dest, const std::string& text, std::ios_base::fmtflags flags = std::ios_base::dec);
void to(unsigned int& dest, const std::string& text, std::ios_base::fmtflags flags = std::ios_base::dec);
void to(long long& dest, const std::string& text, std::ios_base::fmtflags flags = std::ios_base::dec);
void to(unsigned long long& dest, const std::string& text,
        std::ios_base::fmtflags flags = std::ios_base::dec);
void to(unsigned short& dest, const std::string& text, std::ios_base::fmtflags flags = std::ios_base::dec);
void to(bool& dest, const std::string& text, std::ios_base::fmtflags flags = std::ios_base::dec);

std::string from(int value, std::ios_base::fmtflags flags = std::ios_base::dec);
std::string from(unsigned int value, std::ios_base::fmtflags flags = std::ios_base::dec);
std::string from(long value, std::ios_base::fmtflags flags = std::ios_base::dec);
std::string from(unsigned long value, std::ios_base::fmtflags flags = std::ios_base::dec);
std::string from(long long value, std::ios_base::fmtflags flags = std::ios_base::dec);
std::string from(unsigned long long value, std::ios_base::fmtflags flags = std::ios_base::dec);
std::string from(unsigned short value, std::ios_base::fmtflags flags = std::ios_base::dec);

// The length of the valid UTF-8 sequence that starts at `s[i]` (1 for ASCII), or 0 when the byte
// there starts none (overlong forms, surrogates and values above U+10FFFF are not valid). `code`, when
// given, gets the character's value.
std::size_t utf8Length(const std::string& s, std::size_t i, unsigned int* code = nullptr);

}  // namespace vessa::util::str
