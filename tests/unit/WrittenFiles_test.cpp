// The files vessa-storage writes for people: a link planted at their names is replaced, never written
// through; a write that fails leaves the old file; their modes do not come from the umask.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "cli/Capture.h"
#include "platform/Process.h"
#include "support/TestSupport.h"

namespace {

const std::string kProgram = std::string(VESSA_BINARY_DIR) + "/cli/vessa-storage";
const std::string kSnapshot = std::string(VESSA_SOURCE_DIR) + "/tests/scenarios/plain-disks/root";

int storage(const std::list<std::string>& args) {
    std::string out;
    return vessa::sal::exec::runCaptured(kProgram, args, out);
}

bool captureInto(const std::string& dir) {
    std::string why;
    return vessa::cli::prepareCaptureDir(dir, true, why) == vessa::cli::TargetState::Usable;
}

struct Writer {
    const char* what;
    std::string name;  // in the test's directory
    std::function<bool(const std::string& dir)> write;
};

const std::vector<Writer> kWriters = {
    {"report", "r.xml",
     [](const std::string& d) {
         return storage({"report", "--sysroot", kSnapshot, "--output", d + "/r.xml"}) == 0;
     }},
    {"log", "run.log",
     [](const std::string& d) {
         return storage({"list", "--sysroot", kSnapshot, "--log", d + "/run.log"}) == 0;
     }},
    {"capture marker", ".vessa/captured-by", captureInto},
};

TEST(WrittenFiles, APlantedLinkIsReplacedNotFollowed) {
    for (const Writer& w : kWriters) {
        vessa::test::TempDir dir;
        const std::string victim = dir.write("victim", "precious\n");
        std::filesystem::create_directories(std::filesystem::path(dir.path() + "/" + w.name).parent_path());
        ASSERT_EQ(::symlink(victim.c_str(), (dir.path() + "/" + w.name).c_str()), 0) << w.what;
        EXPECT_TRUE(w.write(dir.path())) << w.what;
        EXPECT_EQ(vessa::test::readFile(victim), "precious\n") << w.what;
        EXPECT_FALSE(std::filesystem::is_symlink(dir.path() + "/" + w.name)) << w.what;
    }
}

TEST(WrittenFiles, ModesDoNotComeFromTheUmask) {
    vessa::test::TempDir dir;
    const mode_t old = ::umask(0);
    EXPECT_TRUE(captureInto(dir.path() + "/capture"));  // a new directory
    for (const Writer& w : kWriters) {
        EXPECT_TRUE(w.write(dir.path() + "/capture")) << w.what;
    }
    ::umask(old);
    const std::pair<std::string, mode_t> expected[] = {
        {"capture/r.xml", 0644}, {"capture/run.log", 0600}, {"capture", 0755}, {"capture/.vessa", 0755}};
    for (const auto& [name, mode] : expected) {
        struct stat st;
        ASSERT_EQ(::stat((dir.path() + "/" + name).c_str(), &st), 0) << name;
        EXPECT_EQ(st.st_mode & 07777, mode) << name;
    }
}

// A file size limit makes the write fail as a full disk would, for anyone, without a mount.
TEST(WrittenFiles, AFailedReportWriteLeavesTheOldReport) {
    vessa::test::TempDir dir;
    const std::string report = dir.write("r.xml", "the old report\n");
    std::string err;
    const int status = vessa::sal::exec::runCaptured(
        "/bin/sh",
        {"-c", "trap '' XFSZ; ulimit -f 1; exec \"$0\" report --sysroot \"$1\" --output \"$2\" 2>&1",
         kProgram, kSnapshot, report},
        err);
    EXPECT_EQ(status, 1);
    EXPECT_NE(err.find("cannot write the report " + report + ": File too large"), std::string::npos) << err;
    EXPECT_EQ(vessa::test::readFile(report), "the old report\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1) << "a temporary is left";
}

}  // namespace

// A capture directory that someone else makes between the look and the making (here, at once: a
// dangling link) is refused with that reason, never with a stale error number.
TEST(WrittenFiles, ACaptureDirectoryMadeMeanwhileIsNamedAsSuch) {
    vessa::test::TempDir dir;
    const std::string capture = dir.path() + "/capx";
    ASSERT_EQ(::symlink("nowhere", capture.c_str()), 0);
    std::string why;
    EXPECT_EQ(vessa::cli::prepareCaptureDir(capture, false, why), vessa::cli::TargetState::NotWritable);
    EXPECT_EQ(why, "cannot create " + capture + ": something else created it meanwhile");
}
