#include "cli/Guard.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "platform/view/SystemView.h"

extern char** environ;

namespace vessa::cli {

namespace sys = vessa::sal::sys;

namespace {

// A path with "." and ".." taken away (links are not followed here).
std::string normal(const std::string& path) {
    std::vector<std::string> parts;
    std::string::size_type at = 0;
    while (at <= path.size()) {
        const std::string::size_type slash = std::min(path.find('/', at), path.size());
        const std::string part = path.substr(at, slash - at);
        at = slash + 1;
        if (part.empty() || part == ".") {
            continue;
        }
        if (part == "..") {
            if (!parts.empty()) {
                parts.pop_back();
            }
            continue;
        }
        parts.push_back(part);
    }
    std::string out;
    for (const std::string& p : parts) {
        out += "/" + p;
    }
    return out.empty() ? "/" : out;
}

std::string lastPart(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// How long the guard waits for udev, which holds a disk's lock while it probes it.
constexpr std::chrono::seconds kLockWait{10};

class Held {
  public:
    ~Held() {
        for (int fd : fds_) {
            ::close(fd);
        }
    }
    void keep(int fd) { fds_.push_back(fd); }

  private:
    std::vector<int> fds_;
};

[[noreturn]] void cannot(const std::string& device, const std::string& what, int err) {
    throw std::runtime_error(device + ": " + what + ": " + std::strerror(err));
}

// The whole disk of a device: its own name, or the disk whose partition it is.
std::string wholeDisk(const std::string& kernelName) {
    const std::string node = sys::sysfsName(kernelName);
    char real[PATH_MAX];
    const std::string link = "/sys/class/block/" + node;
    if (::access((link + "/partition").c_str(), F_OK) != 0 || ::realpath(link.c_str(), real) == nullptr) {
        return kernelName;
    }
    return sys::fromSysfsName(lastPart(std::string(real).substr(0, std::string(real).rfind('/'))));
}

}  // namespace

std::string kernelNameOf(const std::string& name) {
    sys::View& view = sys::current();
    std::string path = name;
    const std::string::size_type colon = name.find(':');
    if (colon != std::string::npos && colon > 0 &&
        name.find_first_not_of("0123456789:") == std::string::npos) {
        std::string target;
        if (view.readLink("/sys/dev/block/" + name, target)) {
            return lastPart(target);
        }
        // The partition list names every device by its numbers (a snapshot has no /sys/dev).
        std::string text;
        view.readFile("/proc/partitions", text);
        std::istringstream lines(text);
        for (std::string major, minor, blocks, device; lines >> major >> minor >> blocks >> device;) {
            if (major + ":" + minor == name) {
                return device;
            }
        }
        return "";
    }
    if (path.empty()) {
        return "";
    }
    if (path[0] != '/') {
        path = "/dev/" + path;
    }
    path = normal(path);
    for (int hops = 0; hops < 16; ++hops) {
        std::string target;
        if (!view.readLink(path, target)) {
            break;
        }
        path = normal(target[0] == '/' ? target : path.substr(0, path.rfind('/')) + "/" + target);
    }
    return path.compare(0, 5, "/dev/") == 0 ? path.substr(5) : "";
}

vessa::target::Storage* itemOf(vessa::target::Host& host, const std::string& name) {
    const std::string kernel = kernelNameOf(name);
    if (kernel.empty()) {
        return nullptr;
    }
    // A device's item is found by its path, a device-mapper device's by its kernel name. A disk's item
    // carries its partitions' records too, whose name replaces its own: the item whose path is its own
    // recorded name is the device's.
    std::vector<vessa::target::Storage*> found;
    for (vessa::target::Storage* s : host.storage()) {
        if (s->deviceStorageType() & vessa::target::Storage::fileSystemStorage) {
            continue;
        }
        if (s->path() == "/dev/" + kernel || s->path() == name) {
            return s;
        }
        const vessa::target::Property* own = s->property("Name");
        if (own != nullptr && own->value() == kernel) {
            found.push_back(s);
        }
    }
    for (vessa::target::Storage* s : found) {
        const vessa::target::Property* own = s->property("Name");
        if (own != nullptr && s->path() == "/dev/" + own->value()) {
            return s;
        }
    }
    return found.empty() ? nullptr : found.front();
}

int holdAndRun(const std::vector<std::string>& kernelNames, const std::vector<std::string>& command) {
    Held held;
    std::set<std::string> locked;
    for (const std::string& k : kernelNames) {
        const std::string node = "/dev/" + k;
        const int fd = ::open(node.c_str(), O_RDONLY | O_EXCL | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0) {
            cannot(k, "cannot be held exclusively", errno);
        }
        held.keep(fd);
    }
    for (const std::string& k : kernelNames) {
        const std::string disk = wholeDisk(k);
        if (!locked.insert(disk).second) {
            continue;  // one lock per disk: a second open of it would wait for our own
        }
        const std::string node = "/dev/" + disk;
        const int fd = ::open(node.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0) {
            cannot(disk, "cannot be opened to lock it", errno);
        }
        held.keep(fd);
        const auto until = std::chrono::steady_clock::now() + kLockWait;
        while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= until) {
                cannot(disk, "cannot be locked", errno);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }
    std::vector<char*> argv;
    for (const std::string& a : command) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    // Like system(): the terminal's interrupt goes to the command; the guard waits for it to end.
    struct sigaction ignore = {}, oldInt = {}, oldQuit = {};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGINT, &ignore, &oldInt);
    ::sigaction(SIGQUIT, &ignore, &oldQuit);
    posix_spawnattr_t attr;
    ::posix_spawnattr_init(&attr);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGINT);
    sigaddset(&defaults, SIGQUIT);
    ::posix_spawnattr_setsigdefault(&attr, &defaults);
    ::posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF);
    pid_t pid = -1;
    const int rc = ::posix_spawnp(&pid, argv[0], nullptr, &attr, argv.data(), environ);
    ::posix_spawnattr_destroy(&attr);
    int status = 0;
    if (rc == 0) {
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    ::sigaction(SIGINT, &oldInt, nullptr);
    ::sigaction(SIGQUIT, &oldQuit, nullptr);
    if (rc != 0) {
        throw std::runtime_error(command[0] + " could not be started: " + std::strerror(rc));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace vessa::cli
