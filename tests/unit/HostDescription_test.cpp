#include "target/HostDescription.h"

#include <gtest/gtest.h>

#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

namespace {

// What vessa.shed.env prints is what the controller's Host reads back, key by key.
TEST(HostDescription, PrintedFactsAreReadBackByTheHost) {
    vessa::target::LocalFacts real;
    real.version = "0.1.0";
    real.installDir = "/usr/lib/vessa-target";
    real.buildOs = "linux";
    real.buildCpu = "x86_64";
    real.sysname = "Linux";
    real.release = "6.1.0-18-amd64";
    real.machine = "x86_64";
    real.osRelease = vessa::test::dataBody("host/os-release-debian12.txt");
    real.cpuInfo = vessa::test::dataBody("host/cpuinfo-build-machine.txt");
    real.onlineCpus = 1;
    vessa::target::LocalFacts bare = real;  // no files: uname and sysconf only
    bare.osRelease = bare.cpuInfo = "";
    bare.machine = "armv7l";
    bare.installDir = "/opt/with=equals\nand a line end";
    vessa::target::LocalFacts arm = real;  // hand-made, in the form arm64 kernels print
    arm.machine = "aarch64";
    arm.osRelease = "NAME='Alpine Linux'\n";
    arm.cpuInfo =
        "processor\t: 0\nBogoMIPS\t: 50.00\n\nprocessor\t: 1\n\nprocessor\t: 2\nModel\t: Raspberry Pi 4\n";

    const struct {
        const vessa::target::LocalFacts& facts;
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
        view->commands["pelo --host 127.0.0.1 --exec vessa.shed.env --no-lm"] =
            vessa::test::ScriptedView::Command(true, 0, vessa::target::hostDescription(c.facts));
        vessa::test::ScopedView scoped(std::move(view));
        std::unique_ptr<vessa::target::Host> host(vessa::target::Host::named("127.0.0.1", false));
        const std::vector<std::string> got = {host->toolsVersion(), host->installDir(), host->buildOs(),
                                              host->buildCpu(),     host->osName(),     host->osVersion(),
                                              host->osBits(),       host->cpuName(),    host->cpuCount()};
        EXPECT_EQ(got, c.expected);
    }
    vessa::hax::clearHostCache();
}

}  // namespace
