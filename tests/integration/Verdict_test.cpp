// Verdicts on loop devices of this machine: data that nothing claims (a LUKS header, a swap signature,
// an ext4 partition), a read-only device, and a blank one; and the guard's hold on a device while a
// command runs. Root only; everything is undone afterwards.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <memory>

#include <nlohmann/json.hpp>

#include "platform/Process.h"
#include "support/LoopDevice.h"
#include "support/TestSupport.h"

using vessa::sal::exec::runCaptured;

namespace {

const std::string kProgram = std::string(VESSA_BINARY_DIR) + "/cli/vessa-storage";

// A LUKS2 primary header as cryptsetup writes it, as far as a signature probe reads it: magic,
// version, header size and UUID.
bool writeLuksHeader(const std::string& device) {
    std::string h(4096, '\0');
    h.replace(0, 6, "LUKS\xba\xbe", 6);
    h[7] = 2;        // version 2, big-endian
    h[14] = '\x40';  // header size 16384, big-endian
    const std::string uuid = "4f6c2a10-8d3e-4b5f-9a71-2c3d4e5f6a7b";
    h.replace(168, uuid.size(), uuid);
    std::ofstream out(device, std::ios::binary | std::ios::in);
    return static_cast<bool>(out.write(h.data(), static_cast<std::streamsize>(h.size())).flush());
}

// path -> "verdict|reasons joined by '; '"
std::map<std::string, std::string> verdicts(const std::string& json) {
    std::map<std::string, std::string> out;
    const nlohmann::json doc = nlohmann::json::parse(json);
    for (const auto& item : doc["storage"]) {
        std::string reasons;
        for (const auto& r : item["verdict"]["reasons"]) {
            reasons += (reasons.empty() ? "" : "; ") + r.get<std::string>();
        }
        out[item["path"].get<std::string>()] = item["verdict"]["is"].get<std::string>() + "|" + reasons;
    }
    return out;
}

TEST(VerdictLive, DataAtRestAndReadOnlyAreNoCandidatesWhileABlankDiskIs) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices";
    }
    vessa::test::LoopDevice luks(16 << 20), swap(16 << 20), gpt(40 << 20), readOnly(16 << 20),
        blank(16 << 20);
    ASSERT_TRUE(luks.ok() && swap.ok() && gpt.ok() && readOnly.ok() && blank.ok());
    const std::string disk = gpt.device(), part = disk + "p1";
    ASSERT_TRUE(writeLuksHeader(luks.device()));
    ASSERT_EQ(vessa::test::run("mkswap -q " + swap.device()), 0);
    std::string out;
    ASSERT_EQ(
        runCaptured("sh", {"-c", "printf 'label: gpt\\n,16M\\n' | sfdisk -q \"$0\" && partx -a \"$0\"", disk},
                    out),
        0)
        << out;
    ASSERT_EQ(vessa::test::run("mkfs.ext4 -q -F -L DATA " + part), 0);
    // The flag outlives the loop device's detaching: it is cleared before, also when the test fails.
    const std::string roDevice = readOnly.device();
    const std::shared_ptr<void> writable(
        nullptr, [roDevice](void*) { vessa::test::run("blockdev --setrw " + roDevice); });
    ASSERT_EQ(vessa::test::run("blockdev --setro " + roDevice), 0);

    // (A partition that /etc/fstab names by UUID is the at-rest scenario's; a capture replays as the
    // live run, CliLive's; what check says of each verdict is in tests/cli/invocations.)
    std::string live;
    ASSERT_EQ(runCaptured(kProgram, {"list", "--json"}, live), 0);
    vessa::test::run("partx -d " + disk);
    const std::map<std::string, std::string> expected = {
        {luks.device(), "holds data|holds data: LUKS encrypted volume"},
        {swap.device(), "holds data|holds data: swap space"},
        {part, "holds data|holds data: ext4 'DATA'"},
        {readOnly.device(), "excluded|read-only"},
        {blank.device(), "candidate|"},
    };
    const std::map<std::string, std::string> got = verdicts(live);
    for (const auto& [path, verdict] : expected) {
        EXPECT_EQ(got.count(path) ? got.at(path) : "missing", verdict) << path;
    }
}

TEST(VerdictLive, GuardHoldsTheDeviceWhileTheCommandRunsAndRefusesData) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices";
    }
    vessa::test::LoopDevice blank(16 << 20), swap(16 << 20);
    ASSERT_TRUE(blank.ok() && swap.ok());
    ASSERT_EQ(vessa::test::run("mkswap -q " + swap.device()), 0);
    vessa::test::TempDir work;
    // The command's own exclusive open of the guarded device: 42 when refused with EBUSY.
    const std::string probe =
        "import errno, os, sys\n"
        "try:\n    os.open(sys.argv[1], os.O_RDONLY | os.O_EXCL)\n"
        "except OSError as e:\n    sys.exit(42 if e.errno == errno.EBUSY else 1)\n";
    std::string out;
    EXPECT_EQ(
        runCaptured(kProgram, {"guard", blank.device(), "--", "python3", "-c", probe, blank.device()}, out),
        42)
        << out;
    // Released afterwards.
    const int fd = ::open(blank.device().c_str(), O_RDONLY | O_EXCL);
    EXPECT_GE(fd, 0);
    if (fd >= 0) {
        ::close(fd);
    }
    // Data at rest: refused, and the command is not started.
    const std::string marker = work.path() + "/started";
    EXPECT_EQ(runCaptured(kProgram, {"guard", swap.device(), "--", "touch", marker}, out), 1);
    EXPECT_NE(::access(marker.c_str(), F_OK), 0);
}

}  // namespace
