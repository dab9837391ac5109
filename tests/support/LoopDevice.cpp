#include "support/LoopDevice.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <iterator>
#include <sstream>

#include "platform/Process.h"
#include "platform/Str.h"

namespace vessa::test {

bool runningAsRoot() {
    return ::geteuid() == 0;
}

int run(const std::string& commandLine, std::string* output) {
    std::istringstream words(commandLine);
    std::list<std::string> args{std::istream_iterator<std::string>(words),
                                std::istream_iterator<std::string>()};
    const std::string program = args.front();
    args.pop_front();
    std::string ignored;
    try {
        return vessa::sal::exec::runCaptured(program, args, output != nullptr ? *output : ignored);
    } catch (const std::exception&) {
        return -1;
    }
}

LoopDevice::LoopDevice(unsigned long long bytes) {
    char templ[] = "/tmp/vessa-loop-XXXXXX";
    const int fd = ::mkstemp(templ);
    if (fd < 0) {
        return;
    }
    file_ = templ;
    const int rc = ::ftruncate(fd, static_cast<off_t>(bytes));
    ::close(fd);
    std::string out;
    if (rc == 0 && run("losetup --find --show " + file_, &out) == 0) {
        device_ = vessa::util::str::trim(out);
        // A loop device keeps its read-only mark and the partitions added to it across detaching: those
        // left by a run that was killed before it could undo its own would make this device refuse
        // writes, or show partitions of a table it does not have.
        run("blockdev --setrw " + device_);
        run("partx -d " + device_);
    }
}

LoopDevice::~LoopDevice() {
    if (!device_.empty()) {
        run("losetup -d " + device_);
    }
    if (!file_.empty()) {
        ::unlink(file_.c_str());
    }
}

TestMachine::TestMachine() {
    // Each step that worked leaves its undoing behind.
    auto step = [this](bool done, std::function<void()> undo) {
        if (done) {
            undo_.push_back(std::move(undo));
        }
        return done;
    };
    auto directory = [&step](std::string& path) {
        char templ[] = "/tmp/vessa-mnt-XXXXXX";
        path = ::mkdtemp(templ) != nullptr ? templ : "";
        return step(!path.empty(), [path] { ::rmdir(path.c_str()); });
    };
    auto mountExt4 = [&step](const std::string& device, const std::string& dir) {
        return run("mkfs.ext4 -q -F " + device) == 0 &&
               step(::mount(device.c_str(), dir.c_str(), "ext4", 0, nullptr) == 0,
                    [dir] { ::umount2(dir.c_str(), MNT_DETACH); });
    };
    const std::string disk = gpt.device(), pvs = pvA.device() + " " + pvB.device();
    std::string out;
    volumeGroup = "vessatest" + std::to_string(::getpid());
    ok = mounted.ok() && pvA.ok() && pvB.ok() && blank.ok() && gpt.ok() && directory(mountPoint) &&
         directory(partitionMountPoint) &&
         step(vessa::sal::exec::runCaptured(
                  "/bin/sh",
                  {"-c", "printf 'label: gpt\\n,16M\\n,16M\\n' | sfdisk -q \"$0\" && partx -a \"$0\"", disk},
                  out) == 0,
              [disk] { run("partx -d " + disk); }) &&
         mountExt4(disk + "p1", partitionMountPoint) && run("mkswap -q " + disk + "p2") == 0 &&
         step(run("swapon " + disk + "p2") == 0, [disk] { run("swapoff " + disk + "p2"); }) &&
         mountExt4(mounted.device(), mountPoint) &&
         step(run("pvcreate -q " + pvs) == 0, [pvs] { run("pvremove -q -f " + pvs); }) &&
         step(run("vgcreate -q " + volumeGroup + " " + pvs) == 0,
              [this] { run("vgremove -q -f " + volumeGroup); });
}

TestMachine::~TestMachine() {
    for (auto it = undo_.rbegin(); it != undo_.rend(); ++it) {
        (*it)();
    }
}

}  // namespace vessa::test
