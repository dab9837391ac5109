// The library's discovery run against the plain one of tests/support/Oracle, on every scenario snapshot
// and on generated hosts of many shapes (bench/san_snapshot.py --shape random): the same storage items,
// every field of every item in order, and the same log, line for line; with a log stream and without.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <sstream>

#include "lin/lin.h"
#include "platform/Process.h"
#include "platform/hax/Hax.h"
#include "platform/view/SystemView.h"
#include "support/Oracle.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

using vessa::target::Host;
using vessa::target::Storage;

namespace {

constexpr int kSeeds = 50;

namespace sys = vessa::sal::sys;

// The replay of a snapshot, except that a mount point answers statfs as it did the first time: the
// snapshot lies on a live file system whose free counts move between two runs.
class SteadyReplay : public sys::View {
  public:
    explicit SteadyReplay(const std::string& root) : inner_(sys::makeReplayView(root)) {}
    const std::string& root() const override { return inner_->root(); }
    bool readFile(const std::string& path, std::string& content) override {
        return inner_->readFile(path, content);
    }
    bool listDirectory(const std::string& path, std::vector<sys::DirEntry>& entries) override {
        return inner_->listDirectory(path, entries);
    }
    bool status(const std::string& path, sys::FileStatus& st) override { return inner_->status(path, st); }
    bool readLink(const std::string& path, std::string& target, std::size_t limit) override {
        return inner_->readLink(path, target, limit);
    }
    bool fsStatus(const std::string& path, sys::FsStatus& st) override {
        auto it = answers_.find(path);
        if (it == answers_.end()) {
            sys::FsStatus first;
            const bool ok = inner_->fsStatus(path, first);
            it = answers_.emplace(path, std::make_pair(ok, first)).first;
        }
        st = it->second.second;
        return it->second.first;
    }
    bool deviceReadable(const std::string& path) override { return inner_->deviceReadable(path); }
    std::string hostName() override { return inner_->hostName(); }
    sys::RunOutcome run(const std::string& program, const std::list<std::string>& args, std::string& output,
                        int& status) override {
        return inner_->run(program, args, output, status);
    }
    sys::IoctlResult scsiInquiry(const std::string& device, unsigned int timeout) override {
        return inner_->scsiInquiry(device, timeout);
    }
    sys::ScsiAddressResult scsiAddress(const std::string& device) override {
        return inner_->scsiAddress(device);
    }
    unsigned int readCapacityBlockSize(const std::string& device, bool sixteen) override {
        return inner_->readCapacityBlockSize(device, sixteen);
    }
    sys::ExclusiveOpen exclusiveOpen(const std::string& device) override {
        return inner_->exclusiveOpen(device);
    }
    bool privileged() override { return inner_->privileged(); }

  private:
    std::unique_ptr<sys::View> inner_;
    std::map<std::string, std::pair<bool, sys::FsStatus>> answers_;
};

struct Snapshot {
    std::string name;
    std::string root;
};

struct Outcome {
    std::string items;
    std::string log;
};

std::string describe(Host& host) {
    std::ostringstream out;
    for (Storage* s : host.storage()) {
        out << "item " << s->index() << " type " << s->deviceStorageType() << "\n  name " << s->name()
            << "\n  path " << s->path() << "\n  size " << s->size() << "\n  inquiry \"" << s->inquiry()
            << "\"\n  exclusions " << s->exclusionsList() << " overrides " << s->exclusionOverrides() << " \""
            << s->exclusionString() << "\"\n  sort name " << s->sortName() << "\n";
        for (const auto& [key, property] : s->properties()) {
            out << "  property " << key << "\n";
            property.print(out, "p");
        }
    }
    return out.str();
}

Outcome discover(Host::LocalDiscovery discovery, bool withLog) {
    vessa::hax::clearHostCache();
    std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
    Host::setLocalDiscovery(discovery);
    Outcome outcome;
    {
        std::optional<vessa::test::LogCapture> log;
        if (withLog) {
            log.emplace();
        }
        try {
            host->fill(Storage::allStorage, nullptr, false, {});
        } catch (const std::exception& e) {
            outcome.items = std::string("exception: ") + e.what() + "\n";
        }
        outcome.log = withLog ? log->text() : "";
    }
    Host::setLocalDiscovery(&vessa::target::lin::getLocalStorage);
    outcome.items += describe(*host);
    vessa::hax::clearHostCache();
    return outcome;
}

void expectSame(const std::string& where, const char* what, const std::string& library,
                const std::string& oracle) {
    if (library == oracle) {
        return;
    }
    std::istringstream a(library), b(oracle);
    std::string x, y;
    for (int line = 1;; ++line) {
        const bool moreA = static_cast<bool>(std::getline(a, x));
        const bool moreB = static_cast<bool>(std::getline(b, y));
        if (!moreA || !moreB || x != y) {
            ADD_FAILURE() << where << ": the " << what << " differ first at line " << line
                          << "\n  library: " << (moreA ? x : "(end)")
                          << "\n  oracle:  " << (moreB ? y : "(end)");
            return;
        }
    }
}

std::vector<Snapshot> snapshots(const std::string& generated) {
    std::vector<Snapshot> all;
    const std::filesystem::path scenarios = std::filesystem::path(VESSA_SOURCE_DIR) / "tests" / "scenarios";
    for (const auto& entry : std::filesystem::directory_iterator(scenarios)) {
        if (std::filesystem::is_directory(entry.path() / "root")) {
            all.push_back({"scenario " + entry.path().filename().string(), (entry.path() / "root").string()});
        }
    }
    std::sort(all.begin(), all.end(), [](const Snapshot& a, const Snapshot& b) { return a.name < b.name; });
    std::string out;
    const int status =
        vessa::sal::exec::runCaptured("python3",
                                      {std::string(VESSA_SOURCE_DIR) + "/bench/san_snapshot.py", generated,
                                       "--shape", "random", "--seed", "1", "--count", std::to_string(kSeeds)},
                                      out);
    EXPECT_EQ(status, 0) << "generating the random shapes: " << out;
    for (int seed = 1; seed <= kSeeds; ++seed) {
        all.push_back(
            {"random shape, seed " + std::to_string(seed), generated + "/seed-" + std::to_string(seed)});
    }
    return all;
}

TEST(Differential, LibraryRunEqualsThePlainRun) {
    vessa::test::TempDir generated;
    for (const Snapshot& s : snapshots(generated.path())) {
        vessa::test::ScopedView view(std::make_unique<SteadyReplay>(s.root));
        for (const bool withLog : {true, false}) {
            const Outcome library = discover(&vessa::target::lin::getLocalStorage, withLog);
            const Outcome oracle = discover(&vessa::test::oracle::getLocalStorage, withLog);
            const std::string where = s.name + (withLog ? " (logging)" : " (no log stream)");
            expectSame(where, "storage items", library.items, oracle.items);
            expectSame(where, "logs", library.log, oracle.log);
            // A generated host always has a disk, so an empty list means the run saw nothing of it.
            if (s.name.rfind("random", 0) == 0) {
                EXPECT_NE(library.items.find("item 0 type 36"), std::string::npos) << where;
            }
        }
    }
}

}  // namespace
