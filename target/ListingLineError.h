// The failure of one line of the listing tool's output (format version 136).
//
// It is the base library's conversion exception, with the same text ("conversion from "x" failed"):
// whoever catches that one catches this, and the parser's contract (a conversion failure leaves the
// parser; the items of the lines before stay) is unchanged. It also names the line that failed and
// its place, so that a person can find the fault in a listing of thousands of devices.
#pragma once

#include <cstddef>
#include <string>

#include "platform/Str.h"

namespace vessa::target {

class ListingLineError : public util::str::Exception {
  public:
    ListingLineError(const util::str::Exception& cause, std::string line, std::size_t number);

    // The line as the tool printed it (without its newline).
    const std::string& line() const noexcept { return line_; }
    // Its place among the device lines: 1 for the first line after the version line.
    std::size_t lineNumber() const noexcept { return number_; }

  private:
    std::string line_;
    std::size_t number_;
};

}  // namespace vessa::target
