// The library's discovery run against the plain one of tests/support/Oracle, on every scenario snapshot
// and on generated hosts of many shapes (bench/san_snapshot.py --shape random): the same storage items,
// every field of every item in order, and the same log, line for line; with a log stream and without.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>

#include "lin/lin.h"
#include "platform/Process.h"
#include "platform/hax/Hax.h"
#include "support/Golden.h"
#include "support/Oracle.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;

namespace {

constexpr int kSeeds = 50;

// The items a run makes, then what it logged.
std::string discover(Host::LocalDiscovery discovery, bool withLog) {
    vessa::hax::clearHostCache();
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    Host::setLocalDiscovery(discovery);
    std::unique_ptr<vessa::test::LogCapture> log(withLog ? new vessa::test::LogCapture : nullptr);
    std::string text;
    try {
        host->fill(Storage::allStorage, nullptr, false, {});
    } catch (const std::exception& e) {
        text = std::string("exception: ") + e.what() + "\n";
    }
    const std::string logged = log ? log->text() : "";
    log.reset();
    Host::setLocalDiscovery(&vessa::target::lin::getLocalStorage);
    // The snapshot lies on a live file system, whose free counts move between two runs.
    text += vessa::test::describeItems(*host) + "log:\n" + vessa::test::normalisedLog(logged);
    return text;
}

// Every snapshot to compare on, by name: the scenarios and the generated hosts. Not the one whose path
// is offline: the plain run knows nothing of transport states, and the library leaves such a device
// alone on purpose (its own scenario guards that).
std::map<std::string, std::string> snapshots(const std::string& generated) {
    std::map<std::string, std::string> all;
    const std::filesystem::path scenarios = std::filesystem::path(VESSA_SOURCE_DIR) / "tests" / "scenarios";
    for (const auto& entry : std::filesystem::directory_iterator(scenarios)) {
        if (std::filesystem::is_directory(entry.path() / "root") &&
            entry.path().filename() != "blocked-path") {
            all["scenario " + entry.path().filename().string()] = (entry.path() / "root").string();
        }
    }
    std::string out;
    const int status =
        vessa::sal::exec::runCaptured("python3",
                                      {std::string(VESSA_SOURCE_DIR) + "/bench/san_snapshot.py", generated,
                                       "--shape", "random", "--seed", "1", "--count", std::to_string(kSeeds)},
                                      out);
    EXPECT_EQ(status, 0) << "generating the random shapes: " << out;
    for (int seed = 1; seed <= kSeeds; ++seed) {
        all["random shape, seed " + std::to_string(seed)] = generated + "/seed-" + std::to_string(seed);
    }
    return all;
}

TEST(Differential, LibraryRunEqualsThePlainRun) {
    vessa::test::TempDir generated;
    for (const auto& [name, root] : snapshots(generated.path())) {
        vessa::test::ScopedView view(root);
        for (const bool withLog : {true, false}) {
            const std::string library = discover(&vessa::target::lin::getLocalStorage, withLog);
            const std::string where = name + (withLog ? " (logging)" : " (no log stream)");
            // Multi-line texts: a difference is shown as a diff of their lines.
            EXPECT_EQ(library, discover(&vessa::test::oracle::getLocalStorage, withLog)) << where;
            // A generated host always has a disk, so an empty list means the run saw nothing of it.
            if (name.rfind("random", 0) == 0) {
                EXPECT_EQ(library.rfind("item 0 type 36\n", 0), 0u) << where;
            }
        }
    }
}

}  // namespace
