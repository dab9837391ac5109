// vessa-storage on this machine, with loop devices made for the test: a mounted ext4, two physical
// volumes of a volume group, and a blank one. Root only; everything is undone afterwards.
#include <gtest/gtest.h>

#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "platform/Process.h"
#include "support/LoopDevice.h"
#include "support/TestSupport.h"

using vessa::test::LoopDevice;

namespace {

const std::string kProgram = std::string(VESSA_BINARY_DIR) + "/cli/vessa-storage";

nlohmann::json listJson(const std::list<std::string>& extra = {}) {
    std::list<std::string> args = {"list", "--json"};
    args.insert(args.end(), extra.begin(), extra.end());
    std::string out;
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, args, out), 0);
    return nlohmann::json::parse(out);
}

const nlohmann::json* itemAt(const nlohmann::json& doc, const std::string& path, unsigned int type) {
    for (const auto& item : doc["storage"]) {
        if (item["path"] == path && item["type"] == type) {
            return &item;
        }
    }
    return nullptr;
}

std::string joined(const nlohmann::json& reasons) {
    std::string out;
    for (const auto& r : reasons) {
        out += (out.empty() ? "" : "; ") + r.get<std::string>();
    }
    return out;
}

TEST(CliLive, ListShowsWhatTheTestMadeAndWhatIsInUse) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices";
    }
    vessa::test::TestMachine m;
    ASSERT_TRUE(m.ok());
    const nlohmann::json doc = listJson();
    EXPECT_EQ(doc["complete"], true) << doc["warnings"].dump();

    const std::string p1 = m.gpt.device() + "p1", p2 = m.gpt.device() + "p2";
    const struct {
        std::string path;
        unsigned int type;
        const char* exclusions;
        std::string inUse;  // the reasons, joined
    } expected[] = {
        {m.gpt.device(), 36, "    P     ",
         "through " + m.gpt.name() + "p1: mounted at " + m.partitionMountPoint() + "; through " +
             m.gpt.name() + "p2: active swap"},
        {p1, 26, "          ", "mounted at " + m.partitionMountPoint()},
        {p2, 26, "          ", "active swap"},
        {m.pvA.device(), 36, "       V  ", ""},
        {m.blank.device(), 36, "          ", ""},
        {m.mountPoint() + "/targetfile.dat", 1, "          ", "mounted at " + m.mountPoint()},
    };
    for (const auto& e : expected) {
        const nlohmann::json* item = itemAt(doc, e.path, e.type);
        ASSERT_NE(item, nullptr) << e.path;
        EXPECT_EQ((*item)["exclusions"], e.exclusions) << e.path;
        EXPECT_EQ(joined((*item)["inUse"]), e.inUse) << e.path;
    }
    // The device that holds / is in use, whatever its exclusions say.
    bool root = false;
    for (const auto& item : doc["storage"]) {
        root = root || (item["type"] == 36 && joined(item["inUse"]).find("mounted at /;") == 0) ||
               (item["type"] == 36 && joined(item["inUse"]) == "mounted at /");
    }
    EXPECT_TRUE(root) << "no disk is in use for /";

    // Candidates: the blank disk only of what the test made; nothing in use or excluded.
    const nlohmann::json candidates = listJson({"--candidates"});
    std::vector<std::string> paths;
    for (const auto& item : candidates["storage"]) {
        paths.push_back(item["path"]);
        EXPECT_TRUE(item["inUse"].empty() && item["exclusions"] == "          ") << item.dump();
    }
    EXPECT_NE(std::find(paths.begin(), paths.end(), m.blank.device()), paths.end());

    // Without the rights to look, the run says so and names no candidate.
    std::string out;
    const std::list<std::string> unprivileged = {"--reuid=65534", "--regid=65534", "--clear-groups",
                                                 kProgram,        "list",          "--candidates"};
    EXPECT_EQ(vessa::sal::exec::runCaptured("setpriv", unprivileged, out), 1);
    EXPECT_EQ(out.find(m.blank.device()), std::string::npos) << out;
}

TEST(CliLive, UsageAndFailures) {
    std::string out;
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {}, out), 2);
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {"list", "--bogus"}, out), 2);
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {"list", "--sysroot", "/nonexistent-root"}, out), 1);
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {"--version"}, out), 0);
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {"--bogus"}, out), 2);
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {"list", "--type", "disk,nonsense"}, out), 2);
}

// A snapshot names its host; that name never places the report outside the current directory.
TEST(CliReplay, ReportNameStaysInTheCurrentDirectory) {
    for (const std::string name : {"../escaped", ".hidden", "a/b"}) {
        vessa::test::TempDir work;
        work.write("root/etc/hostname", name + "\n");
        work.write("root/proc/partitions", "");
        work.write("cwd/.keep", "");
        std::string err;
        const std::list<std::string> args = {"-c", "cd \"$1\" && \"$0\" report --sysroot \"$2\" 2>&1",
                                             kProgram, work.path() + "/cwd", work.path() + "/root"};
        EXPECT_EQ(vessa::sal::exec::runCaptured("/bin/sh", args, err), 1) << name;
        // The line that ends the run (the warnings of an all but empty snapshot come before it).
        EXPECT_NE(
            err.find("\nvessa-storage: host name \"" + name +
                     "\" would put the report outside the current directory; name the file with --output\n"),
            std::string::npos)
            << err;
        EXPECT_FALSE(std::filesystem::exists(work.path() + "/escaped.xml"));
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(work.path() + "/cwd"), {}), 1) << name;
        std::string out;
        EXPECT_EQ(
            vessa::sal::exec::runCaptured(
                kProgram,
                {"report", "--sysroot", work.path() + "/root", "--output", work.path() + "/chosen.xml"}, out),
            0);
        EXPECT_TRUE(std::filesystem::exists(work.path() + "/chosen.xml"));
    }
}

}  // namespace
