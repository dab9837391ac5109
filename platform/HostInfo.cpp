#include "platform/HostInfo.h"

namespace vessa::sal::hostinfo::build {

std::string os() {
#if defined(_WIN32)
    return "win";
#else
    return "linux";
#endif
}

std::string cpu() {
#if defined(__x86_64__)
    return "x86_64";
#elif defined(__i386__)
    return "i686";
#elif defined(__aarch64__)
    return "aarch64";
#elif defined(__arm__)
    return "arm";
#elif defined(__powerpc64__) && defined(__LITTLE_ENDIAN__)
    return "ppc64le";
#elif defined(__powerpc64__)
    return "ppc64";
#elif defined(__s390x__)
    return "s390x";
#elif defined(__riscv) && __riscv_xlen == 64
    return "riscv64";
#else
    return "unknown";
#endif
}

}  // namespace vessa::sal::hostinfo::build
