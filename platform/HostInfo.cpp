#include "platform/HostInfo.h"

namespace vessa::sal::hostinfo::build {

std::string os() {
#if defined(_WIN32)
    return "win";
#else
    return "linux";
#endif
}

}  // namespace vessa::sal::hostinfo::build
