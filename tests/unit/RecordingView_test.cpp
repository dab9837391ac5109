#include "platform/view/RecordingView.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/Golden.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

namespace fs = std::filesystem;
namespace sys = vessa::sal::sys;
using vessa::target::Host;
using vessa::target::Storage;

namespace {

const std::string kScenarios = std::string(VESSA_SOURCE_DIR) + "/tests/scenarios/";

// Discovery of every kind through `view`; the host's name, its items and their verdicts as one
// comparable text.
std::string discover(std::unique_ptr<sys::View> view) {
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::move(view));
    std::unique_ptr<Host> host(Host::named(sys::current().hostName(), false));
    host->fill(Storage::allStorage, nullptr, false, {});
    std::string text = host->name() + "\n" + vessa::test::describeItems(*host);
    // The verdicts too: they hold what the devices answered (signatures, exclusive opens, paths left
    // alone), which no item property shows.
    for (Storage* s : host->storage()) {
        const vessa::target::Verdict v = host->verdict(*s);
        text += s->path() + ": " + v.word();
        for (const std::string& r : v.reasons()) {
            text += "; " + r;
        }
        text += "\n";
    }
    return text;
}

// Every file and link under `dir`, with its content or target.
std::map<std::string, std::string> tree(const std::string& dir) {
    std::map<std::string, std::string> out;
    for (auto it = fs::recursive_directory_iterator(dir); it != fs::recursive_directory_iterator(); ++it) {
        const std::string rel = fs::relative(it->path(), dir).string();
        if (it->is_symlink()) {
            out[rel] = "-> " + fs::read_symlink(it->path()).string();
        } else if (it->is_regular_file()) {
            out[rel] = vessa::test::readFile(it->path().string());
        } else if (it->is_directory()) {
            out[rel + "/"] = "";
        }
    }
    return out;
}

// A capture taken while replaying a scenario replays to the same items; and capturing that capture
// writes exactly the same files again, so a capture holds nothing that its replay does not read.
TEST(RecordingView, CaptureOfAScenarioReplaysToTheSameItemsAndIsAFixedPoint) {
    for (const char* scenario :
         {"plain-disks", "partitions-root-boot-swap", "lvm", "multipath-kpartx", "cciss", "network-mounts",
          "zero-size", "no-sources", "at-rest", "in-use", "blocked-path"}) {
        SCOPED_TRACE(scenario);
        const std::string root = kScenarios + scenario + "/root";
        vessa::test::TempDir first, second;
        const std::string original = discover(sys::makeReplayView(root));
        EXPECT_EQ(discover(std::make_unique<sys::RecordingView>(sys::makeReplayView(root), first.path())),
                  original);
        EXPECT_EQ(discover(sys::makeReplayView(first.path())), original);
        discover(std::make_unique<sys::RecordingView>(sys::makeReplayView(first.path()), second.path()));
        EXPECT_EQ(tree(second.path()), tree(first.path()));
    }
}

// Only what was asked is written, a device as the mark of its read test, never its data. Links of the
// machine that point out of the capture, absolute or climbing with "..", are written as links; what is
// read through them afterwards is written inside the capture, never where they point on this machine.
TEST(RecordingView, WritesOnlyWhatWasAskedAndOnlyInsideItsDirectory) {
    vessa::test::TempDir elsewhere;
    for (const std::string& target : {elsewhere.path(), "../../../../../../.." + elsewhere.path()}) {
        SCOPED_TRACE(target);
        auto inner = std::make_unique<vessa::test::ScriptedView>();
        inner->files["/etc/secret"] = "do not copy";
        inner->links["/etc/mtab"] = target + "/mtab";
        inner->files["/etc/mtab"] = "/dev/sda1 / ext4 rw 0 0\n";
        inner->files["/dev/sda1"] = "RAW DEVICE DATA";
        inner->links["/dev/disk/by-id/x"] = target;
        inner->files["/dev/disk/by-id/x/size"] = "1\n";
        inner->commands["dmsetup ls --target multipath"] = {true, 1, "x\n"};
        vessa::test::TempDir dir;
        sys::RecordingView rec(std::move(inner), dir.path());
        std::string text;
        int status = 0;
        ASSERT_TRUE(rec.readLink("/dev/disk/by-id/x", text, 512));
        ASSERT_TRUE(rec.readLink("/etc/mtab", text, 512));
        ASSERT_TRUE(rec.readFile("/etc/mtab", text));
        ASSERT_TRUE(rec.readFile("/dev/disk/by-id/x/size", text));
        EXPECT_TRUE(rec.deviceReadable("/dev/sda1"));
        fs::create_symlink(elsewhere.path(), dir.path() + "/.vessa");  // even the recordings' folder
        EXPECT_EQ(rec.run("dmsetup", {"ls", "--target", "multipath"}, text, status), sys::RunOutcome::Exited);
        EXPECT_EQ(rec.run("lvdisplay", {}, text, status), sys::RunOutcome::NotStarted);
        EXPECT_TRUE(fs::is_empty(elsewhere.path()));
        EXPECT_EQ(rec.firstError(), "");
        const auto written = tree(dir.path());
        EXPECT_EQ(written.at("etc/mtab"), "-> " + target + "/mtab");
        EXPECT_EQ(written.at("dev/disk/by-id/x/size"), "1\n");
        EXPECT_EQ(written.at("dev/sda1"), "readable\n");  // the mark, never the device's data
        EXPECT_EQ(written.at(".vessa/commands/dmsetup ls --target multipath"), "x\n");
        EXPECT_EQ(written.at(".vessa/commands/dmsetup ls --target multipath.status"), "1\n");
        EXPECT_EQ(written.count("etc/secret") + written.count(".vessa/commands/lvdisplay"), 0u);
    }
    // A write that fails is collected, while the answer still comes through.
    vessa::test::TempDir dir;
    sys::RecordingView failing(std::make_unique<vessa::test::ScriptedView>(),
                               dir.write("file", "x") + "/under");
    EXPECT_EQ(failing.hostName(), "scripted");
    EXPECT_NE(failing.firstError(), "");
}

}  // namespace
