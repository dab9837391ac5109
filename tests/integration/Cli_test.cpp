// vessa-storage on this machine, with the loop devices, volume group, mounts and swap of a TestMachine.
// Root only; everything is undone afterwards.
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <list>
#include <map>
#include <memory>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/Process.h"
#include "support/LoopDevice.h"
#include "support/TestSupport.h"

using vessa::sal::exec::runCaptured;

namespace {

const std::string kProgram = std::string(VESSA_BINARY_DIR) + "/cli/vessa-storage";

// Every item of a list document as "type path" -> "exclusions|the in-use reasons, joined by "; "".
std::map<std::string, std::string> rows(const std::string& json) {
    std::map<std::string, std::string> out;
    const nlohmann::json doc = nlohmann::json::parse(json);
    for (const auto& item : doc["storage"]) {
        std::string reasons;
        for (const auto& r : item["inUse"]) {
            reasons += (reasons.empty() ? "" : "; ") + r.get<std::string>();
        }
        out[item["type"].dump() + " " + item["path"].get<std::string>()] =
            item["exclusions"].get<std::string>() + "|" + reasons;
    }
    return out;
}

// The live list and report equal those replayed from a capture, and show what the machine holds.
TEST(CliLive, ListCaptureAndReportOfWhatTheTestMade) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices";
    }
    vessa::test::TestMachine m;
    ASSERT_TRUE(m.ok);
    vessa::test::TempDir work;
    const std::string snapshot = work.path() + "/snap";
    std::string live, replayed, out, listed, denied;
    ASSERT_EQ(runCaptured(kProgram, {"capture", snapshot}, out), 0);
    ASSERT_EQ(runCaptured(kProgram, {"list", "--json"}, live), 0);
    ASSERT_EQ(runCaptured(kProgram, {"list", "--json", "--sysroot", snapshot}, replayed), 0);
    EXPECT_EQ(replayed, live);
    ASSERT_EQ(runCaptured(kProgram, {"report", "--output", work.path() + "/live.xml"}, out), 0);
    ASSERT_EQ(runCaptured(kProgram,
                          {"report", "--sysroot", snapshot, "--output", work.path() + "/replay.xml"}, out),
              0);
    EXPECT_EQ(vessa::test::readFile(work.path() + "/replay.xml"),
              vessa::test::readFile(work.path() + "/live.xml"));

    EXPECT_EQ(nlohmann::json::parse(live)["complete"], true) << live;
    const std::string gpt = m.gpt.device(), mounted = "mounted at " + m.partitionMountPoint;
    const std::map<std::string, std::string> got = rows(live);
    const std::map<std::string, std::string> expected = {
        {"36 " + gpt, "    P     |through " + m.gpt.name() + "p1: " + mounted + "; through " + m.gpt.name() +
                          "p2: active swap"},
        {"26 " + gpt + "p1", "          |" + mounted},
        {"26 " + gpt + "p2", "          |active swap"},
        {"36 " + m.pvA.device(), "       V  |"},
        {"36 " + m.blank.device(), "          |"},
        {"1 " + m.mountPoint + "/targetfile.dat", "          |mounted at " + m.mountPoint},
    };
    for (const auto& [key, value] : expected) {
        EXPECT_EQ(got.count(key) ? got.at(key) : "missing", value) << key;
    }
    // The device that holds / is in use, whatever its exclusions say.
    EXPECT_TRUE(std::any_of(got.begin(), got.end(), [](const auto& row) {
        return row.first.rfind("36 ", 0) == 0 && (row.second + ";").find("|mounted at /;") == 10;
    })) << "no disk is in use for /";

    // Candidates: the blank disk of what the test made; nothing in use or excluded.
    ASSERT_EQ(runCaptured(kProgram, {"list", "--json", "--candidates"}, listed), 0);
    const std::map<std::string, std::string> candidates = rows(listed);
    EXPECT_EQ(candidates.count("36 " + m.blank.device()), 1u) << listed;
    for (const auto& [key, value] : candidates) {
        EXPECT_EQ(value, "          |") << key;
    }
    // Without the rights to look, the run says so, names no candidate, and exits with the status of
    // devices it could not check.
    EXPECT_EQ(
        runCaptured("setpriv",
                    {"--reuid=65534", "--regid=65534", "--clear-groups", kProgram, "list", "--candidates"},
                    denied),
        3);
    EXPECT_EQ(denied.find(m.blank.device()), std::string::npos) << denied;
}

// Usage errors and failures of the command line are cases of tests/cli/invocations.
TEST(CliLive, CaptureIntoAReadOnlyMountNamesTheDirectory) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root to mount";
    }
    vessa::test::TempDir work;
    // Root writes through permissions; a read-only mount stops it, and the message names the directory.
    const std::string ro = work.path() + "/ro";
    ASSERT_EQ(::mkdir(ro.c_str(), 0755), 0);
    ASSERT_EQ(::mount("tmpfs", ro.c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
    const std::shared_ptr<void> unmount(nullptr, [&ro](void*) { ::umount2(ro.c_str(), MNT_DETACH); });
    std::string err;
    EXPECT_EQ(runCaptured("/bin/sh", {"-c", "\"$0\" capture \"$1\" 2>&1", kProgram, ro}, err), 1);
    EXPECT_NE(err.find(ro), std::string::npos) << err;
}

// A snapshot names its host; that name never places the report outside the current directory.
TEST(CliReplay, ReportNameStaysInTheCurrentDirectory) {
    for (const std::string name : {"../escaped", ".hidden", "a/b"}) {
        vessa::test::TempDir work;
        work.write("root/etc/hostname", name + "\n");
        work.write("root/proc/partitions", "");
        work.write("cwd/.keep", "");
        const std::string root = work.path() + "/root";
        std::string err, out;
        EXPECT_EQ(runCaptured("/bin/sh",
                              {"-c", "cd \"$1\" && \"$0\" report --sysroot \"$2\" 2>&1", kProgram,
                               work.path() + "/cwd", root},
                              err),
                  1)
            << name;
        // The line that ends the run (the warnings of an all but empty snapshot come before it).
        EXPECT_NE(
            err.find("\nvessa-storage: host name \"" + name +
                     "\" would put the report outside the current directory; name the file with --output\n"),
            std::string::npos)
            << err;
        EXPECT_FALSE(std::filesystem::exists(work.path() + "/escaped.xml"));
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(work.path() + "/cwd"), {}), 1) << name;
        EXPECT_EQ(runCaptured(kProgram,
                              {"report", "--sysroot", root, "--output", work.path() + "/chosen.xml"}, out),
                  0);
        EXPECT_TRUE(std::filesystem::exists(work.path() + "/chosen.xml"));
    }
}

}  // namespace
