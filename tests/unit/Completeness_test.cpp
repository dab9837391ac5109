#include "lin/Completeness.h"

#include <gtest/gtest.h>

#include "support/ScriptedView.h"
#include "target/Host.h"

using vessa::sal::sys::RunOutcome;
using vessa::target::Host;
using vessa::target::Storage;

namespace {

// A tool ended for taking too long is named as such. (A snapshot cannot replay a hang; what a run
// could not see otherwise is in the golden cases of tests/golden/completeness.)
TEST(Completeness, AToolThatHangs) {
    auto v = std::make_unique<vessa::test::ScriptedView>();
    v->files["/proc/partitions"] = "major minor  #blocks  name\n\n   8  0 1048576 sda\n";
    v->dirs["/sys/block"] = {"sda"};
    v->files["/etc/mtab"] = v->files["/etc/fstab"] = "";
    v->commands["dmsetup ls --target multipath"] =
        v->commands["dmsetup ls --tree -o notrunc"] = {true, 1, ""};
    v->commands["pvdisplay"] = v->commands["vgdisplay"] = {true, 0, ""};
    v->commands["lvdisplay"] = {RunOutcome::TimedOut, 0, ""};
    v->commands["file -s %2Fdev%2Fsda"] = {true, 0, "/dev/sda: data\n"};
    vessa::test::ScopedView scoped(std::move(v));
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    host->fill(Storage::allStorage, nullptr, false, {});
    EXPECT_EQ(host->discoveryReport().warnings,
              std::vector<std::string>{
                  "lvdisplay did not finish in time and was ended: logical volumes may be missing"});
}

}  // namespace
