// The licence information of a machine as the environment tool keeps it: a file of "key=value" lines
// in the package's configuration directory, with the five keys below. The tool prints the keys that
// are set behind the host's description, and changes them with --set; Host reads them into its
// LicenseInfo and changes them through the tool (target/Host.h).
#pragma once

#include <map>
#include <string>

namespace vessa::target {

// "license.provider", "license.server", "license.port", "license.expiry", "license.feature", in the
// order in which they are printed.
inline constexpr const char* kLicenseKeys[] = {"license.provider", "license.server", "license.port",
                                               "license.expiry", "license.feature"};

bool isLicenseKey(const std::string& key);

// The keys of such a file that are licence keys with a value; other lines are ignored.
std::map<std::string, std::string> parseLicenseFile(const std::string& text);

// The file for `values`: the keys with a value, one "key=value" line each, in the order above.
std::string licenseFileText(const std::map<std::string, std::string>& values);

}  // namespace vessa::target
