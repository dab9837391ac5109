// Internet addresses of the base library (vessa::sal::io).
#pragma once

#include <string>
#include <vector>

#include "platform/Export.h"

namespace vessa::sal::io {

class VESSA_API AINETAddress {
  public:
    AINETAddress() = default;
    // From numerical text ("10.0.0.7", "::1"); the text is kept as given.
    explicit AINETAddress(std::string numeric) : text_(std::move(numeric)) {}

    // The numerical text ("" for an address that was never set).
    const std::string& text() const { return text_; }
    bool operator==(const AINETAddress& other) const { return text_ == other.text_; }

    // The numerical address of a host name (IPv4 preferred); throws vessa::Exception naming the host
    // when it cannot be resolved. Numerical text resolves to itself.
    static AINETAddress resolve(const std::string& name);
    // Every address of this machine's interfaces, numerical.
    static std::vector<std::string> interfaceAddresses();

  private:
    std::string text_;
};

}  // namespace vessa::sal::io
