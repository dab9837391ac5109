// Device names come from the machine or from a snapshot someone sent. Blanks, quotes, ";" and "$(...)"
// in them reach the programs that discovery starts as one argument each: no shell ever sees them.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/view/SystemView.h"
#include "support/FakeProgram.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

namespace sys = vessa::sal::sys;
using vessa::target::Host;
using vessa::target::Storage;
using vessa::test::FakeProgram;

namespace {

// Files from the script, programs run on this machine.
class LiveCommands : public vessa::test::ScriptedView {
  public:
    sys::RunOutcome run(const std::string& program, const std::list<std::string>& args, std::string& output,
                        int& status) override {
        return live_->run(program, args, output, status);
    }

  private:
    std::unique_ptr<sys::View> live_ = sys::makeLiveView();
};

// The disks found through `view`, as "path [exclusions]", sorted.
std::vector<std::string> disks(std::unique_ptr<sys::View> view) {
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::move(view));
    std::unique_ptr<Host> host(Host::named(sys::current().hostName(), false));
    host->fill(Storage::discoveredBlockDevice, nullptr, false, {});
    std::vector<std::string> out;
    for (Storage* s : host->storage()) {
        out.push_back(s->path() + " [" + s->exclusionString() + "]");
    }
    std::sort(out.begin(), out.end());
    return out;
}

TEST(NoShell, HostileDeviceNamesAreOneArgument) {
    vessa::test::TempDir dir;
    const std::string canary = dir.path() + "/ran-a-shell";
    // /proc/partitions separates its columns with blanks, so kernel names carry none; a device-mapper
    // name does, and becomes the path /dev/mapper/<name>.
    const std::vector<std::string> kernelNames = {"q'u\"o;te", "$(touch${IFS}" + canary + ")",
                                                  "`touch${IFS}" + canary + "`|&>x"};
    const std::string mapName = "my disk 'a' \"b\"; c && touch " + canary + " #",
                      tree = mapName + "\t(253:0)\n";
    std::string partitions = "major minor  #blocks  name\n\n253 0 1024 dm-0\n";
    std::set<std::vector<std::string>> fileCalls = {{"-s", "/dev/mapper/" + mapName}};
    for (std::size_t i = 0; i < kernelNames.size(); ++i) {
        partitions += "8 " + std::to_string(16 * i) + " 1024 " + kernelNames[i] + "\n";
        fileCalls.insert({"-s", "/dev/" + kernelNames[i]});
    }
    // "file -s" of each name finds the file system printed for it, which marks it (P).
    std::vector<std::string> partitioned;
    for (const std::vector<std::string>& call : fileCalls) {
        partitioned.push_back(call[1] + " [    P     ]");
    }
    std::sort(partitioned.begin(), partitioned.end());

    // The programs on PATH record the argument vectors they were given. (A snapshot's recordings are
    // found by the same vector, through sys::commandFileName.)
    FakeProgram file("file", "x: Linux rev 1.0 ext4 filesystem data\n");
    FakeProgram dmsetup("dmsetup", tree);
    FakeProgram pvdisplay("pvdisplay", "  PV Name  /dev/mapper/" + mapName + "\n  VG Name  vg\n");
    FakeProgram vgdisplay("vgdisplay", "  VG Name  vg\n");
    FakeProgram lvdisplay("lvdisplay", "  LV Name  /dev/vg/" + mapName + "\n  Block device  253:0\n");
    auto view = std::make_unique<LiveCommands>();
    view->files["/proc/partitions"] = partitions;
    EXPECT_EQ(disks(std::move(view)), partitioned);
    const std::vector<std::vector<std::string>> calls = file.calls();
    EXPECT_EQ(std::set<std::vector<std::string>>(calls.begin(), calls.end()), fileCalls);
    EXPECT_EQ(calls.size(), fileCalls.size());
    // The volume manager's tools take no arguments at all; the names only come back in their output.
    for (const FakeProgram* lvm : {&pvdisplay, &vgdisplay, &lvdisplay}) {
        EXPECT_EQ(lvm->calls(), std::vector<std::vector<std::string>>{{}});
    }
    EXPECT_FALSE(std::filesystem::exists(canary));
}

}  // namespace
