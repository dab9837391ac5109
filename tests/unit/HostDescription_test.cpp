#include "target/HostDescription.h"

#include <gtest/gtest.h>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

namespace {

// What vessa.shed.env prints is what the controller's Host reads back, key by key.
TEST(HostDescription, PrintedFactsAreReadBackByTheHost) {
    using vessa::target::LocalFacts;
    LocalFacts real{
        "0.1.0", "/usr/lib/vessa-target", "linux", "x86_64", "Linux", "6.1.0-18-amd64", "x86_64", "", "", 1};
    real.osRelease = vessa::test::dataBody("host/os-release-debian12.txt");
    real.cpuInfo = vessa::test::dataBody("host/cpuinfo-build-machine.txt");
    // No files: uname and sysconf only.
    const LocalFacts bare{"0.1.0",  "/opt/with=equals\nand a line end",
                          "linux",  "x86_64",
                          "Linux",  "6.1.0-18-amd64",
                          "armv7l", "",
                          "",       1};
    // Hand-made, in the form arm64 kernels print.
    LocalFacts arm = real;
    arm.machine = "aarch64";
    arm.osRelease = "NAME='Alpine Linux'\n";
    arm.cpuInfo =
        "processor\t: 0\nBogoMIPS\t: 50.00\n\nprocessor\t: 1\n\nprocessor\t: 2\nModel\t: Raspberry Pi 4\n";
    const struct {
        const LocalFacts& facts;
        std::vector<std::string> expected;  // the nine values in key order
    } cases[] = {
        {real,
         {"0.1.0", "/usr/lib/vessa-target", "linux", "x86_64", "Debian GNU/Linux 12 (bookworm)",
          "6.1.0-18-amd64", "64", "AMD EPYC", "2"}},
        {bare,
         {"0.1.0", "/opt/with=equals and a line end", "linux", "x86_64", "Linux", "6.1.0-18-amd64", "32",
          "armv7l", "1"}},
        {arm,
         {"0.1.0", "/usr/lib/vessa-target", "linux", "x86_64", "Alpine Linux", "6.1.0-18-amd64", "64",
          "Raspberry Pi 4", "3"}},
    };
    for (const auto& c : cases) {
        vessa::hax::clearHostCache();
        auto view = std::make_unique<vessa::test::ScriptedView>();
        view->commands["pelo --host 127.0.0.1 --exec vessa.shed.env --no-lm"] = {
            vessa::sal::sys::RunOutcome::Exited, 0, vessa::target::hostDescription(c.facts)};
        vessa::test::ScopedView scoped(std::move(view));
        std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
        EXPECT_EQ((std::vector<std::string>{host->toolsVersion(), host->installDir(), host->buildOs(),
                                            host->buildCpu(), host->osName(), host->osVersion(),
                                            host->osBits(), host->cpuName(), host->cpuCount()}),
                  c.expected);
    }
}

}  // namespace
