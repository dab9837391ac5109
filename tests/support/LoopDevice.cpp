#include "support/LoopDevice.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <vector>

#include "platform/Process.h"
#include "platform/Str.h"

namespace vessa::test {

bool runningAsRoot() {
    return ::geteuid() == 0;
}

int run(const std::string& commandLine, std::string* output) {
    std::istringstream words(commandLine);
    std::list<std::string> args;
    std::string program;
    words >> program;
    for (std::string w; words >> w;) {
        args.push_back(w);
    }
    std::string out;
    try {
        int status = vessa::sal::exec::runCaptured(program, args, out);
        if (output != nullptr) {
            *output = out;
        }
        return status;
    } catch (const std::exception&) {
        return -1;
    }
}

LoopDevice::LoopDevice(unsigned long long bytes) {
    char templ[] = "/tmp/vessa-loop-XXXXXX";
    int fd = ::mkstemp(templ);
    if (fd < 0) {
        return;
    }
    file_ = templ;
    int rc = ::ftruncate(fd, static_cast<off_t>(bytes));
    ::close(fd);
    if (rc != 0) {
        return;
    }
    std::string out;
    if (run("losetup --find --show " + file_, &out) == 0) {
        device_ = vessa::util::str::trim(out);
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

}  // namespace vessa::test

#include <sys/mount.h>

namespace vessa::test {

TestMachine::TestMachine() {
    if (!mounted.ok() || !pvA.ok() || !pvB.ok() || !blank.ok() || !gpt.ok()) {
        return;
    }
    char templ[] = "/tmp/vessa-mnt-XXXXXX";
    char partTempl[] = "/tmp/vessa-mnt-XXXXXX";
    if (::mkdtemp(templ) == nullptr || ::mkdtemp(partTempl) == nullptr) {
        return;
    }
    mountPoint_ = templ;
    partMountPoint_ = partTempl;
    std::string out;
    partitioned_ = vessa::sal::exec::runCaptured(
                       "/bin/sh",
                       {"-c", "printf 'label: gpt\\n,16M\\n,16M\\n' | sfdisk -q \"$0\" && partx -a \"$0\"",
                        gpt.device()},
                       out) == 0;
    const std::string p1 = gpt.device() + "p1", p2 = gpt.device() + "p2";
    partMounted_ = partitioned_ && run("mkfs.ext4 -q -F " + p1) == 0 &&
                   ::mount(p1.c_str(), partMountPoint_.c_str(), "ext4", 0, nullptr) == 0;
    swapOn_ = partitioned_ && run("mkswap -q " + p2) == 0 && run("swapon " + p2) == 0;
    if (!partMounted_ || !swapOn_) {
        return;
    }
    vg_ = "vessatest" + std::to_string(::getpid());
    if (run("mkfs.ext4 -q -F " + mounted.device()) != 0) {
        return;
    }
    mountedOk_ = ::mount(mounted.device().c_str(), mountPoint_.c_str(), "ext4", 0, nullptr) == 0;
    ok_ = mountedOk_ && run("pvcreate -q " + pvA.device() + " " + pvB.device()) == 0 &&
          run("vgcreate -q " + vg_ + " " + pvA.device() + " " + pvB.device()) == 0;
}

TestMachine::~TestMachine() {
    if (mountedOk_) {
        ::umount2(mountPoint_.c_str(), MNT_DETACH);
    }
    if (swapOn_) {
        run("swapoff " + gpt.device() + "p2");
    }
    if (partMounted_) {
        ::umount2(partMountPoint_.c_str(), MNT_DETACH);
    }
    if (partitioned_) {
        run("partx -d " + gpt.device());
    }
    if (!partMountPoint_.empty()) {
        ::rmdir(partMountPoint_.c_str());
    }
    if (!vg_.empty()) {
        run("vgremove -q -f " + vg_);
        run("pvremove -q -f " + pvA.device() + " " + pvB.device());
    }
    if (!mountPoint_.empty()) {
        ::rmdir(mountPoint_.c_str());
    }
}

}  // namespace vessa::test
