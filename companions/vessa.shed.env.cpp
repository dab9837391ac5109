// vessa.shed.env: describes the machine it runs on, one "key=value" line per fact (the nine keys that
// the controller reads; see target/HostDescription.h), then the licence keys that are set
// (target/LicenseFile.h).
//
//   vessa.shed.env [--no-lm]
//   vessa.shed.env --set KEY=VALUE...      changes licence keys (an empty VALUE removes the key)
//
// The licence keys live in the file "license" of the package's configuration directory
// (VESSA_CONFIG_DIR when set, else /etc/vessa-target for the package), written whole or not at all.
// Exit status 0; 1 with one line on standard error when the file cannot be written; 2 for a key that
// is not a licence key or a value that holds a line end.
//
// The install directory is VESSA_VLTT_INSTALL_DIR when set, else, for a program installed in a bin
// directory, the package's directory beside it (<prefix>/lib/vessa-target for
// <prefix>/bin/vessa.shed.env), else (a build tree) the program's own directory.
#include <sys/utsname.h>
#include <unistd.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "platform/HostInfo.h"
#include "platform/SafeFile.h"
#include "platform/view/SystemView.h"
#include "target/HostDescription.h"
#include "target/LicenseFile.h"

namespace {

std::string parentOf(const std::string& path) {
    const std::string::size_type slash = path.find_last_of('/');
    return slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
}

std::string installDir() {
    const char* set = std::getenv("VESSA_VLTT_INSTALL_DIR");
    if (set != nullptr && set[0] != '\0') {
        return set;
    }
    vessa::sal::sys::View& view = vessa::sal::sys::current();
    std::string self;
    if (!view.readLink("/proc/self/exe", self, 4096)) {
        return "";
    }
    // Installed, the program lies in <prefix>/bin; the package directory need not exist yet, since the
    // launcher makes the listing tool's working directory in it on the first query.
    const std::string bin = parentOf(self);
    if (bin.size() < 4 || bin.compare(bin.size() - 4, 4, "/bin") != 0) {
        return bin;
    }
    return (parentOf(bin) == "/" ? "" : parentOf(bin)) + "/" + VESSA_PACKAGE_DIR;
}

std::string configDir() {
    const char* set = std::getenv("VESSA_CONFIG_DIR");
    return set != nullptr && set[0] != '\0' ? set : VESSA_CONFIG_DIR_DEFAULT;
}

std::string licenseFile() {
    return configDir() + "/license";
}

std::map<std::string, std::string> readLicense() {
    std::string text;
    vessa::sal::sys::current().readFile(licenseFile(), text);
    return vessa::target::parseLicenseFile(text);
}

// --set KEY=VALUE...: the licence file with those keys changed.
int setLicense(const std::vector<std::string>& settings) {
    std::map<std::string, std::string> values = readLicense();
    for (const std::string& s : settings) {
        const std::string::size_type eq = s.find('=');
        const std::string key = s.substr(0, eq);
        if (eq == std::string::npos || !vessa::target::isLicenseKey(key)) {
            std::cerr << "vessa.shed.env: not a licence key: " << key << '\n';
            return 2;
        }
        const std::string value = s.substr(eq + 1);
        if (value.find_first_of("\r\n") != std::string::npos) {
            std::cerr << "vessa.shed.env: the value of " << key << " holds a line end\n";
            return 2;
        }
        values[key] = value;
    }
    const std::string dir = configDir();
    if (::mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
        std::cerr << "vessa.shed.env: cannot make " << dir << ": " << std::strerror(errno) << '\n';
        return 1;
    }
    try {
        vessa::sal::posix::writeWholeFile(licenseFile(), vessa::target::licenseFileText(values), 0644);
    } catch (const vessa::sal::posix::FileWriteError& e) {
        std::cerr << "vessa.shed.env: " << e.why() << '\n';
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--version") {
            std::cout << "vessa.shed.env " << VESSA_VERSION << '\n';
            return 0;
        }
        if (a == "--set") {
            return setLicense(std::vector<std::string>(argv + i + 1, argv + argc));
        }
        if (a != "--no-lm") {
            std::cerr << "usage: vessa.shed.env [--no-lm] | --set KEY=VALUE...\n";
            return 2;
        }
    }
    vessa::target::LocalFacts facts;
    facts.version = VESSA_VERSION;
    facts.installDir = installDir();
    facts.buildOs = vessa::sal::hostinfo::build::os();
    facts.buildCpu = vessa::sal::hostinfo::build::cpu();
    struct utsname u;
    if (::uname(&u) == 0) {
        facts.sysname = u.sysname;
        facts.release = u.release;
        facts.machine = u.machine;
    }
    vessa::sal::sys::View& view = vessa::sal::sys::current();
    if (!view.readFile("/etc/os-release", facts.osRelease)) {
        view.readFile("/usr/lib/os-release", facts.osRelease);
    }
    view.readFile("/proc/cpuinfo", facts.cpuInfo);
    facts.onlineCpus = ::sysconf(_SC_NPROCESSORS_ONLN);
    std::cout << vessa::target::hostDescription(facts);
    std::cout << vessa::target::licenseFileText(readLicense());
    std::cout.flush();
    return std::cout ? 0 : 1;
}
