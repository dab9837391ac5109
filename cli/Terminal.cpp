#include "cli/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace vessa::cli {

bool utf8Locale() {
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(name);
        if (value != nullptr && *value != '\0') {
            std::string v(value);
            std::transform(v.begin(), v.end(), v.begin(), [](unsigned char c) { return std::tolower(c); });
            return v.find("utf-8") != std::string::npos || v.find("utf8") != std::string::npos;
        }
    }
    return false;
}

bool progressShowable() {
    const char* term = std::getenv("TERM");
    return ::isatty(STDERR_FILENO) && term != nullptr && *term != '\0' && std::string(term) != "dumb";
}

std::size_t outputColumns() {
    struct winsize ws = {};
    if (!::isatty(STDOUT_FILENO) || ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &ws) != 0) {
        return 0;
    }
    return ws.ws_col;
}

}  // namespace vessa::cli
