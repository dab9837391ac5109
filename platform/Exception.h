// The base library's exception family. Every error that the platform layer raises is a vessa::Exception
// (or derives from it): a reason text (why), an error code and the domain in which that code is meant.
#pragma once

#include <exception>
#include <string>

#include "platform/Export.h"

namespace vessa {

namespace sal::err {

// Domains of error codes. "posix" codes are errno values; "vessa" codes are the Code values below.
inline constexpr const char* kPosix = "posix";
inline constexpr const char* kVessa = "vessa";

enum Code : int {
    kNone = 0,
    kConversion = 1,   // text could not be converted to or from a number
    kNullHandle = 2,   // an operation needs an object that the handle does not hold
    kNotFound = 3,     // a named host, file or program does not exist
    kUnsupported = 4,  // the operation is not available (e.g. no transport for a remote host)
    kProtocol = 5,     // a peer answered something that could not be understood
};

// Text of `code` in `domain`: strerror for "posix", a fixed name for "vessa", else "code N".
VESSA_API std::string asString(int code, const std::string& domain);

}  // namespace sal::err

class VESSA_API Exception : public std::exception {
  public:
    explicit Exception(std::string why, int code = sal::err::kNone, std::string domain = sal::err::kVessa);
    ~Exception() override;

    const std::string& why() const noexcept { return why_; }
    int code() const noexcept { return code_; }
    const std::string& domain() const noexcept { return domain_; }

    // The class name as logged by callers that report exceptions ("vessa::Exception", ...).
    virtual const char* typeName() const noexcept;
    const char* what() const noexcept override { return why_.c_str(); }

  private:
    std::string why_;
    int code_;
    std::string domain_;
};

// A system call failed: the code is the errno value, the domain "posix".
class VESSA_API SystemException : public Exception {
  public:
    SystemException(const std::string& what, int err);
    const char* typeName() const noexcept override;
};

}  // namespace vessa
