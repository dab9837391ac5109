#include "lin/Completeness.h"

#include <gtest/gtest.h>

#include "support/ScriptedView.h"
#include "target/Host.h"

using vessa::sal::sys::RunOutcome;
using vessa::target::Host;
using vessa::target::Storage;

namespace {

// A disk on a kernel without device-mapper, whose tools answered, and a run that saw all of it.
std::unique_ptr<vessa::test::ScriptedView> seenMachine() {
    auto v = std::make_unique<vessa::test::ScriptedView>();
    v->files["/proc/partitions"] = "major minor  #blocks  name\n\n   8  0 1048576 sda\n";
    v->dirs["/sys/block"] = {"sda"};
    v->files["/etc/mtab"] = v->files["/etc/fstab"] = "";
    v->commands["dmsetup ls --target multipath"] =
        v->commands["dmsetup ls --tree -o notrunc"] = {true, 1, ""};
    v->commands["pvdisplay"] = v->commands["vgdisplay"] = v->commands["lvdisplay"] = {true, 0, ""};
    v->commands["file -s %2Fdev%2Fsda"] = {true, 0, "/dev/sda: data\n"};
    return v;
}

TEST(Completeness, WhatARunCouldNotSee) {
    using View = vessa::test::ScriptedView;
    const struct {
        const char* what;
        void (*change)(View&);
        std::vector<std::string> warnings;
    } cases[] = {
        {"everything seen; dmsetup fails on a kernel without device-mapper and there is no fstab",
         [](View& v) { v.files.erase("/etc/fstab"); },
         {}},
        {"not root",
         [](View& v) { v.privilegedRun = false; },
         {"not running as root: devices could not be opened; mounted devices may be missing their "
          "exclusions"}},
        {"dmsetup fails where a device-mapper device exists",
         [](View& v) {
             v.files["/proc/partitions"] += " 253  0 1024 dm-0\n";
             v.commands["file -s %2Fdev%2Fdm-0"] = {true, 0, "data\n"};
         },
         {"dmsetup failed (status 1): multipath devices and device-mapper relations may be missing"}},
        {"the kernel lists the driver",
         [](View& v) { v.files["/proc/devices"] = "Block devices:\n253 device-mapper\n"; },
         {"dmsetup failed (status 1): multipath devices and device-mapper relations may be missing"}},
        {"volume tools missing, failing, hanging",
         [](View& v) {
             v.commands.erase("pvdisplay");
             v.commands["vgdisplay"] = {true, 5, ""};
             v.commands["lvdisplay"] = {RunOutcome::TimedOut, 0, ""};
         },
         {"pvdisplay could not be run: volume-group members may be missing",
          "lvdisplay did not finish in time and was ended: logical volumes may be missing",
          "vgdisplay failed (status 5): volume-group members may be missing"}},
        {"a non-zero status with output is an answer",
         [](View& v) {
             v.commands["pvdisplay"] = {true, 5, "  PV Name /dev/sda\n"};
         },
         {}},
        // (The other tables, a missing tool and "file" are named in the scenarios' warnings.)
        {"no partition list",
         [](View& v) { v.files.erase("/proc/partitions"); },
         {"/proc/partitions could not be read: devices may be missing"}},
    };
    for (const auto& c : cases) {
        auto v = seenMachine();
        c.change(*v);
        vessa::hax::clearHostCache();
        vessa::test::ScopedView scoped(std::move(v));
        std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
        host->fill(Storage::allStorage, nullptr, false, {});
        EXPECT_EQ(host->discoveryReport().warnings, c.warnings) << c.what;
        EXPECT_EQ(host->discoveryReport().complete(), c.warnings.empty()) << c.what;
        vessa::hax::clearHostCache();
    }
}

}  // namespace
