#include "lin/lin.h"

#include <gtest/gtest.h>

#include "platform/Exception.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

namespace sys = vessa::sal::sys;
using vessa::target::Host;
using vessa::target::Storage;

namespace {

// A physical volume on a partition, three logical volumes mounted or used as swap, /boot, fstab and mtab.
// (The items of every type that such machines give are compared exactly by the scenario snapshots.)
const std::string kLvm = std::string(VESSA_SOURCE_DIR) + "/tests/scenarios/lvm/root";

// Runs `look` on the local host of a run through `view`, with a fresh host table.
template <class F>
void onHost(std::unique_ptr<sys::View> view, F look) {
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::move(view));
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    look(*host);
}

TEST(Discovery, NothingAddedForOtherTypesButEverythingRead) {
    onHost(sys::makeReplayView(kLvm), [](Host& host) {
        host.storage().push_back(new Storage(Storage::physicalStorage, "x", "/dev/x", 1, 0, "", 0, {}));
        vessa::test::LogCapture log;
        EXPECT_EQ(host.fill(static_cast<Storage::storageType>(64), nullptr, false, {}), 1);
        EXPECT_TRUE(log.hasMessage("Pulled 3 items from lvdisplay..."));
        EXPECT_FALSE(log.hasMessage("Getting exclusions for sda"));  // nothing converted
    });
}

TEST(Discovery, InquiryTimeoutOption) {
    const struct {
        std::list<std::string> args;
        unsigned int expected;
    } cases[] = {{{}, 1}, {{"-j2", "-J8"}, 8}, {{"-j"}, 1}, {{"xj9"}, 9}, {{"-J7", "-x"}, 7}};
    for (const auto& c : cases) {
        auto v = std::make_unique<vessa::test::ScriptedView>();
        v->files["/proc/partitions"] = "major minor #blocks name\n 8 0 1 sda\n";
        vessa::test::ScriptedView* raw = v.get();
        onHost(std::move(v), [&](Host& host) {
            host.fill(Storage::physicalStorage, nullptr, false, c.args);
            ASSERT_FALSE(raw->inquiryTimeouts.empty());
            EXPECT_EQ(raw->inquiryTimeouts,
                      std::vector<unsigned int>(raw->inquiryTimeouts.size(), c.expected));
        });
    }
    onHost(std::make_unique<vessa::test::ScriptedView>(), [](Host& host) {
        EXPECT_THROW(host.fill(Storage::physicalStorage, nullptr, false, {"-jx"}), vessa::Exception);
    });
}

std::vector<std::pair<int, std::string>> g_progress;
void record(int percent, std::string message) {
    g_progress.emplace_back(percent, message);
}

TEST(Discovery, ProgressNamesEachSourceAndCountsItems) {
    g_progress.clear();
    onHost(sys::makeReplayView(kLvm),
           [](Host& host) { host.fill(static_cast<Storage::storageType>(36), record, false, {}); });
    std::vector<std::string> messages;
    int last = -1;
    for (const auto& [percent, message] : g_progress) {
        EXPECT_GE(percent, last) << message;  // never goes back
        last = percent;
        messages.push_back(message);
    }
    ASSERT_GE(messages.size(), 10u);
    EXPECT_EQ(messages.front(), "Reading /proc/partitions");
    EXPECT_EQ(messages[8], "Reading /dev/disk/by-*");
    EXPECT_EQ(messages.back(), "Done: 1 items");
    EXPECT_EQ(last, 100);
}

}  // namespace
