// vessa-storage on this machine, with the loop devices, volume group, mounts and swap of a TestMachine,
// and loop devices holding data that nothing claims. Root only; everything is undone afterwards.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <regex>

#include <nlohmann/json.hpp>

#include "platform/Process.h"
#include "support/LoopDevice.h"
#include "support/TestSupport.h"

using vessa::sal::exec::runCaptured;
using vessa::test::run;

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

// Every item of a list document as "type path" -> "exclusions|verdict|its reasons, joined by "; "".
std::map<std::string, std::string> rows(const std::string& json) {
    std::map<std::string, std::string> out;
    const nlohmann::json doc = nlohmann::json::parse(json);
    for (const auto& item : doc["storage"]) {
        std::string v =
            item["exclusions"].get<std::string>() + "|" + item["verdict"]["is"].get<std::string>() + "|";
        for (const auto& r : item["verdict"]["reasons"]) {
            v += (v.back() == '|' ? "" : "; ") + r.get<std::string>();
        }
        out[item["type"].dump() + " " + item["path"].get<std::string>()] = v;
    }
    return out;
}

// The live list and report equal those replayed from a capture, and show what the machine holds: what
// is mounted or active swap is in use, data at rest (a LUKS header, a swap signature, an ext4
// partition) and a read-only device are no candidates, a blank disk is.
TEST(CliLive, ListCaptureAndReportOfWhatTheTestMade) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices";
    }
    vessa::test::TestMachine m;
    ASSERT_TRUE(m.ok);
    vessa::test::LoopDevice luks(16 << 20), swap(16 << 20), data(40 << 20), readOnly(16 << 20);
    ASSERT_TRUE(luks.ok() && swap.ok() && data.ok() && readOnly.ok());
    ASSERT_TRUE(writeLuksHeader(luks.device()));
    ASSERT_EQ(run("mkswap -q " + swap.device()), 0);
    const std::string disk = data.device(), roDevice = readOnly.device();
    std::string out, live, replayed, listed, denied;
    // The partitions and the read-only flag outlive the loop devices' detaching: both are undone
    // before, also when the test fails.
    const std::shared_ptr<void> undo(nullptr, [disk, roDevice](void*) {
        run("partx -d " + disk);
        run("blockdev --setrw " + roDevice);
    });
    ASSERT_EQ(
        runCaptured("sh", {"-c", "printf 'label: gpt\\n,16M\\n' | sfdisk -q \"$0\" && partx -a \"$0\"", disk},
                    out),
        0)
        << out;
    ASSERT_EQ(run("mkfs.ext4 -q -F -L DATA " + disk + "p1"), 0);
    ASSERT_EQ(run("blockdev --setro " + roDevice), 0);

    vessa::test::TempDir work;
    const std::string snapshot = work.path() + "/snap";
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
    // (A partition that /etc/fstab names by UUID is the at-rest scenario's; what check says of each
    // verdict is in tests/cli/invocations.)
    const std::map<std::string, std::string> expected = {
        {"36 " + gpt, "    P     |excluded|partitioned or holds a file system; through " + m.gpt.name() +
                          "p1: " + mounted + "; through " + m.gpt.name() +
                          "p2: active swap; holds data: gpt partition table"},
        {"26 " + gpt + "p1", "          |in use|" + mounted + "; holds data: ext4"},
        {"26 " + gpt + "p2", "          |in use|active swap; holds data: swap space"},
        {"36 " + m.pvA.device(), "       V  |excluded|volume group member; holds data: LVM2 physical volume"},
        {"36 " + m.blank.device(), "          |candidate|"},
        {"1 " + m.mountPoint + "/targetfile.dat", "          |in use|mounted at " + m.mountPoint},
        {"36 " + luks.device(), "          |holds data|holds data: LUKS encrypted volume"},
        {"36 " + swap.device(), "          |holds data|holds data: swap space"},
        {"26 " + disk + "p1", "          |holds data|holds data: ext4 'DATA'"},
        {"36 " + roDevice, "          |excluded|read-only"},
    };
    for (const auto& [key, value] : expected) {
        EXPECT_EQ(got.count(key) ? got.at(key) : "missing", value) << key;
    }
    // The device that holds / is in use, whatever its exclusions say.
    EXPECT_TRUE(std::any_of(got.begin(), got.end(), [](const auto& row) {
        return row.first.rfind("36 ", 0) == 0 &&
               std::regex_search(row.second + ";", std::regex("[|;] ?mounted at /;"));
    })) << "no disk is in use for /";

    // Candidates: the blank disk of what the test made; nothing in use or excluded.
    ASSERT_EQ(runCaptured(kProgram, {"list", "--json", "--candidates"}, listed), 0);
    const std::map<std::string, std::string> candidates = rows(listed);
    EXPECT_EQ(candidates.count("36 " + m.blank.device()), 1u) << listed;
    for (const auto& [key, value] : candidates) {
        EXPECT_EQ(value, "          |candidate|") << key;
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

// The guard holds a blank device while the command runs, and refuses one that holds data.
TEST(CliLive, GuardHoldsTheDeviceWhileTheCommandRunsAndRefusesData) {
    if (!vessa::test::runningAsRoot()) {
        GTEST_SKIP() << "needs root for loop devices";
    }
    vessa::test::LoopDevice blank(16 << 20), swap(16 << 20);
    ASSERT_TRUE(blank.ok() && swap.ok());
    ASSERT_EQ(run("mkswap -q " + swap.device()), 0);
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
