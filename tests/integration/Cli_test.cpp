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

TEST(CliLive, ListShowsWhatTheTestMade) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices";
    }
    vessa::test::TestMachine m;
    ASSERT_TRUE(m.ok());

    const nlohmann::json doc = listJson();
    const nlohmann::json* fs = itemAt(doc, m.mountPoint() + "/targetfile.dat", 1);
    ASSERT_NE(fs, nullptr) << doc.dump(1);
    EXPECT_EQ((*fs)["name"], m.mounted.name());
    for (const LoopDevice* pv : {&m.pvA, &m.pvB}) {
        const nlohmann::json* item = itemAt(doc, pv->device(), 36);
        ASSERT_NE(item, nullptr) << pv->device();
        EXPECT_EQ((*item)["exclusions"], "       V  ");
        EXPECT_EQ((*item)["reasons"], nlohmann::json::array({"volume group member"}));
    }
    const nlohmann::json* b = itemAt(doc, m.blank.device(), 36);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ((*b)["exclusions"], "          ");
    EXPECT_EQ((*b)["size"], 16 << 20);

    // The device that holds / is the system, whatever else it is.
    std::string root;
    for (const auto& item : doc["storage"]) {
        if (item["type"] == 36 && item["properties"].dump().find("\"/\"") != std::string::npos) {
            root = item["exclusions"];
        }
    }
    ASSERT_FALSE(root.empty()) << "no block device carries the / mount";
    EXPECT_EQ(root[5], 'S');
}

TEST(CliLive, UsageAndFailures) {
    std::string out;
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {}, out), 2);
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {"list", "--bogus"}, out), 2);
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {"list", "--sysroot", "/nonexistent-root"}, out), 1);
    EXPECT_EQ(vessa::sal::exec::runCaptured(kProgram, {"--version"}, out), 0);
}

// A snapshot names its host; that name never places the report outside the current directory.
TEST(CliReplay, ReportNameStaysInTheCurrentDirectory) {
    for (const std::string name : {"../escaped", ".hidden", "a/b"}) {
        vessa::test::TempDir work;
        work.write("root/etc/hostname", name + "\n");
        work.write("cwd/.keep", "");
        std::string err;
        const std::list<std::string> args = {"-c", "cd \"$1\" && \"$0\" report --sysroot \"$2\" 2>&1",
                                             kProgram, work.path() + "/cwd", work.path() + "/root"};
        EXPECT_EQ(vessa::sal::exec::runCaptured("/bin/sh", args, err), 1) << name;
        EXPECT_EQ(err,
                  "vessa-storage: host name \"" + name +
                      "\" would put the report outside the current directory; name the file with --output\n");
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
