#include "platform/Exception.h"

#include <cstring>
#include <utility>

namespace vessa {

namespace sal::err {

std::string asString(int code, const std::string& domain) {
    if (domain == kPosix) {
        return std::strerror(code);
    }
    if (domain == kVessa) {
        switch (code) {
            case kNone:
                return "no error";
            case kConversion:
                return "conversion failed";
            case kNullHandle:
                return "null handle";
            case kNotFound:
                return "not found";
            case kUnsupported:
                return "unsupported operation";
            case kProtocol:
                return "protocol error";
            default:
                break;
        }
    }
    return "code " + std::to_string(code);
}

}  // namespace sal::err

Exception::Exception(std::string why, int code, std::string domain)
    : why_(std::move(why)), code_(code), domain_(std::move(domain)) {}

Exception::~Exception() = default;

const char* Exception::typeName() const noexcept {
    return "vessa::Exception";
}

SystemException::SystemException(const std::string& what, int err)
    : Exception(what + ": " + std::strerror(err), err, sal::err::kPosix) {}

const char* SystemException::typeName() const noexcept {
    return "vessa::SystemException";
}

}  // namespace vessa
