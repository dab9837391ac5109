#include "target/LicenseFile.h"

#include <sstream>

#include "platform/Str.h"

namespace vessa::target {

bool isLicenseKey(const std::string& key) {
    for (const char* k : kLicenseKeys) {
        if (key == k) {
            return true;
        }
    }
    return false;
}

std::map<std::string, std::string> parseLicenseFile(const std::string& text) {
    std::map<std::string, std::string> values;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::string::size_type eq = line.find('=');
        if (eq == std::string::npos) {
            continue;
        }
        const std::string key = util::str::trim(line.substr(0, eq));
        const std::string value = util::str::trim(line.substr(eq + 1));
        if (isLicenseKey(key) && !value.empty()) {
            values[key] = value;
        }
    }
    return values;
}

std::string licenseFileText(const std::map<std::string, std::string>& values) {
    std::string text;
    for (const char* k : kLicenseKeys) {
        auto it = values.find(k);
        if (it != values.end() && !it->second.empty()) {
            text += std::string(k) + "=" + it->second + "\n";
        }
    }
    return text;
}

}  // namespace vessa::target
