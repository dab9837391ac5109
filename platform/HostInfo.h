// What the controller itself was built for (vessa::sal::hostinfo::build).
#pragma once

#include <string>

namespace vessa::sal::hostinfo::build {

// The operating system the library was built for, in the suite's words: "linux" here ("win" on the
// other family). Compared with a target host's "build.os" to pick the path convention.
std::string os();
// The processor family the library was built for, as uname names machines ("x86_64", "aarch64", ...).
std::string cpu();

}  // namespace vessa::sal::hostinfo::build
