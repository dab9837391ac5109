#include "platform/view/ProbePool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>

#include "platform/view/ProbingView.h"
#include "support/ScriptedView.h"
#include "support/TestSupport.h"
#include "target/Host.h"

namespace sys = vessa::sal::sys;
using vessa::target::Host;
using vessa::target::Storage;

namespace {

const std::string kInUse = std::string(VESSA_SOURCE_DIR) + "/tests/scenarios/in-use/root";

// The snapshot's own answers, given by helpers as a slow SAN would: every probe takes a while, and
// one device never answers at all (its helper sleeps for ever, as a call stuck on a dead path does).
sys::ProbePool::Prober slowSan(sys::View& replay, const std::string& dead) {
    return [&replay, dead](const sys::ProbeRequest& r) {
        while (sys::kernelName(r.device) == dead) {
            ::pause();
        }
        ::usleep(5000);
        return sys::ProbingView::probeDirectly(replay, r);
    };
}

struct Seen {
    std::vector<std::pair<std::string, std::string>> inquiries;  // path, inquiry
    std::vector<std::string> warnings;
    double seconds = 0;
};

Seen discover(const std::string& dead) {
    std::unique_ptr<sys::View> replay = sys::makeReplayView(kInUse);
    sys::View& inner = *replay;
    auto view = std::make_unique<sys::ProbingView>(std::move(replay), nullptr, slowSan(inner, dead));
    vessa::hax::clearHostCache();
    vessa::test::ScopedView scoped(std::move(view));
    Seen run;
    const auto start = std::chrono::steady_clock::now();
    {
        std::unique_ptr<Host> host(Host::named("127.0.0.1", false));
        host->fill(static_cast<Storage::storageType>(31), nullptr, false, {"-j1", "--in-use"});
        run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        for (const Storage* s : host->storage()) {
            run.inquiries.emplace_back(s->path(), s->inquiry());
        }
        run.warnings = host->discoveryReport().warnings;
    }
    return run;
}

}  // namespace

// A device whose probes never return costs the run one deadline (the INQUIRY timeout and the grace),
// is named, and takes nothing from the others' answers.
TEST(ProbePool, DeadPathCostsOneDeadlineAndIsNamed) {
    const Seen healthy = discover("");
    const Seen stalled = discover("sdb");
    EXPECT_LT(stalled.seconds, 1.0 + 0.5 + 2.0);  // -j1 plus the grace, plus room for a slow build
    ASSERT_EQ(healthy.inquiries.size(), stalled.inquiries.size());
    int sdb = 0;
    for (std::size_t i = 0; i < healthy.inquiries.size(); ++i) {
        const auto& [path, inquiry] = stalled.inquiries[i];
        EXPECT_EQ(path, healthy.inquiries[i].first);
        if (path == "/dev/sdb") {
            ++sdb;
            EXPECT_EQ(inquiry, std::string(28, ' '));
        } else {
            EXPECT_EQ(inquiry, healthy.inquiries[i].second) << path;
        }
    }
    EXPECT_EQ(sdb, 1);
    bool named = false;
    for (const std::string& w : stalled.warnings) {
        named = named || w.rfind("sdb did not answer", 0) == 0;
    }
    EXPECT_TRUE(named);
    for (const std::string& w : healthy.warnings) {
        EXPECT_EQ(w.find("did not answer"), std::string::npos) << w;
    }
}

// A helper that dies mid-probe fails that probe with a warning; the pool starts another for the rest.
TEST(ProbePool, HelperThatDiesFailsOnlyItsProbe) {
    sys::ProbePool pool(
        [](const sys::ProbeRequest& r) {
            if (r.device == "sdx") {
                ::_exit(3);
            }
            sys::ProbeAnswer a;
            a.blockSize = static_cast<unsigned int>(r.device.size());
            return a;
        },
        2);
    std::vector<sys::ProbeRequest> ahead;
    for (const char* d : {"sda", "sdx", "sdaa", "sdaaa"}) {
        ahead.push_back({sys::ProbeKind::Capacity10, d, 1});
    }
    pool.ahead(ahead);
    EXPECT_EQ(pool.ask(ahead[0]).blockSize, 3u);
    EXPECT_FALSE(pool.ask(ahead[1]).answered);
    EXPECT_EQ(pool.ask(ahead[2]).blockSize, 4u);
    EXPECT_EQ(pool.ask(ahead[3]).blockSize, 5u);
    const std::vector<std::string> warnings = pool.takeWarnings();
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].rfind("sdx: the helper process of a READ CAPACITY ended", 0), 0u) << warnings[0];
}

// The exclusive-open tests of a disk and its partitions are never made at the same time: the kernel
// would refuse each for the other, and the run would call a free disk busy. Here a test holds a
// marker per disk while it runs, and finds the device busy when the marker is there already.
TEST(ProbePool, ExclusiveTestsOfOneDiskNeverOverlap) {
    vessa::test::TempDir dir;
    const std::string markers = dir.path();
    sys::ProbePool pool(
        [markers](const sys::ProbeRequest& r) {
            const std::string marker = markers + "/" + sys::kernelName(r.device).substr(0, 3);
            sys::ProbeAnswer a;
            const int fd = ::open(marker.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0600);
            a.exclusive.result = fd < 0 ? sys::ExclusiveOpen::Busy : sys::ExclusiveOpen::Free;
            if (fd >= 0) {
                ::usleep(2000);
                ::close(fd);
                ::unlink(marker.c_str());
            }
            return a;
        },
        4);
    std::vector<sys::ProbeRequest> ahead;
    for (const char* disk : {"sda", "sdb", "sdc", "sdd", "sde", "sdf"}) {
        ahead.push_back({sys::ProbeKind::Exclusive, disk, 1});
        for (const char* part : {"1", "2", "3"}) {
            ahead.push_back({sys::ProbeKind::Exclusive, std::string("/dev/") + disk + part, 1, disk});
        }
    }
    pool.ahead(ahead);
    for (const sys::ProbeRequest& r : ahead) {
        EXPECT_EQ(pool.ask(r).exclusive.result, sys::ExclusiveOpen::Free) << r.device;
    }
}

// A helper killed at the end of a run while it holds a device has let go of it when finish() returns:
// a program that takes the device right after the run must not find it busy. The lock on a file
// stands for the exclusive open.
TEST(ProbePool, FinishReturnsOnceKilledHelpersHaveLetGo) {
    vessa::test::TempDir dir;
    const std::string held = dir.write("held", "");
    const int mine = ::open(held.c_str(), O_RDONLY);
    ASSERT_GE(mine, 0);
    sys::ProbePool pool(
        [held](const sys::ProbeRequest&) {
            const int fd = ::open(held.c_str(), O_RDONLY);
            ::flock(fd, LOCK_EX);
            for (;;) {
                ::pause();
            }
            return sys::ProbeAnswer();
        },
        1);
    pool.ahead({{sys::ProbeKind::Exclusive, "sda", 1}});
    while (::flock(mine, LOCK_EX | LOCK_NB) == 0) {
        ::flock(mine, LOCK_UN);
        ::usleep(1000);
    }
    EXPECT_TRUE(pool.finish().empty());
    EXPECT_EQ(::flock(mine, LOCK_EX | LOCK_NB), 0);
    ::close(mine);
}

// A device's content test of its own node is made with its signature probe, on the same reads; a
// content test of another path is still a probe of its own, and so is one whose device's signatures
// were asked for alone before.
TEST(ProbePool, ContentTestOfADevicesNodeComesWithItsSignatures) {
    sys::ProbingView view(sys::makeReplayView(kInUse), nullptr, [](const sys::ProbeRequest& r) {
        sys::ProbeAnswer a;
        a.outcome = sys::RunOutcome::Exited;
        a.text = r.kind == sys::ProbeKind::Signatures ? "with signatures of " + r.device + "\n" : "alone\n";
        return a;
    });
    const std::vector<sys::DeviceProbes> plan = {{"sdb", false, false, "", true},
                                                 {"sdb", false, false, "/dev/sdb"},
                                                 {"dm-0", false, false, "/dev/mapper/data", true},
                                                 {"sdc", false, false, "", true},
                                                 {"sdc", false, false, "/dev/sdc"}};
    EXPECT_EQ(view.readSignatures("sdc").state, sys::SignatureProbe::NotRead);
    view.probeAhead(plan, 1);
    for (const auto& [path, expected] :
         {std::pair<std::string, std::string>{"/dev/sdb", "with signatures of sdb\n"},
          {"/dev/mapper/data", "alone\n"},
          {"/dev/sdc", "alone\n"}}) {
        std::string output;
        int status = -1;
        EXPECT_EQ(view.describeContent(path, output, status), sys::RunOutcome::Exited) << path;
        EXPECT_EQ(output, expected) << path;
    }
}
