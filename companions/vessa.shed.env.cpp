// vessa.shed.env: describes the machine it runs on, one "key=value" line per fact (the nine keys that
// the controller reads; see target/HostDescription.h).
//
//   vessa.shed.env [--no-lm]
//
// The install directory is VESSA_VLTT_INSTALL_DIR when set, else, for a program installed in a bin
// directory, the package's directory beside it (<prefix>/lib/vessa-target for
// <prefix>/bin/vessa.shed.env), else (a build tree) the program's own directory.
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "platform/HostInfo.h"
#include "platform/view/SystemView.h"
#include "target/HostDescription.h"

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

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--version") {
            std::cout << "vessa.shed.env " << VESSA_VERSION << '\n';
            return 0;
        }
        if (a != "--no-lm") {
            std::cerr << "usage: vessa.shed.env [--no-lm]\n";
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
    std::cout.flush();
    return std::cout ? 0 : 1;
}
