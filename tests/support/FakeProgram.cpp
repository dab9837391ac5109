#include "support/FakeProgram.h"

#include <sys/stat.h>

#include <cstdlib>
#include <sstream>

namespace vessa::test {

FakeProgram::FakeProgram(const std::string& name, const std::string& answer, int status) {
    dir_.write("answer", answer);
    // Each run appends its arguments, one per line, then a line "--end--".
    const std::string script = "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\" >> '" + dir_.path() +
                               "/calls'; done\necho --end-- >> '" + dir_.path() + "/calls'\ncat '" +
                               dir_.path() + "/answer'\nexit " + std::to_string(status) + "\n";
    const std::string path = dir_.write(name, script);
    ::chmod(path.c_str(), 0755);
    const char* old = std::getenv("PATH");
    oldPath_ = old == nullptr ? "" : old;
    ::setenv("PATH", (dir_.path() + ":" + oldPath_).c_str(), 1);
}

FakeProgram::~FakeProgram() {
    ::setenv("PATH", oldPath_.c_str(), 1);
}

std::vector<std::vector<std::string>> FakeProgram::calls() const {
    std::vector<std::vector<std::string>> result;
    std::istringstream in(readFile(dir_.path() + "/calls"));
    std::vector<std::string> current;
    for (std::string line; std::getline(in, line);) {
        if (line == "--end--") {
            result.push_back(current);
            current.clear();
        } else {
            current.push_back(line);
        }
    }
    return result;
}

}  // namespace vessa::test
