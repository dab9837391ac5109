#include "platform/view/RootedFiles.h"

#include "platform/SafeFile.h"
#include "platform/view/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <deque>

namespace vessa::sal::posix {

namespace {

// The kernel's own bound on links followed in one look-up.
constexpr int kMaxLinks = 40;

// Closes a descriptor when it goes out of scope.
class Fd {
  public:
    explicit Fd(int fd = -1) : fd_(fd) {}
    ~Fd() { reset(); }
    Fd(Fd&& o) noexcept : fd_(o.release()) {}
    Fd& operator=(Fd&& o) noexcept {
        if (this != &o) {
            reset(o.release());
        }
        return *this;
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }
    int release() {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            const int saved = errno;
            ::close(fd_);
            errno = saved;
        }
        fd_ = fd;
    }

  private:
    int fd_;
};

// The components of a path as the kernel walks them: empty ones dropped, "." and ".." kept, and a
// trailing "/" written as a last "." (it, too, demands a directory and follows a link before it).
void appendComponents(const std::string& path, std::deque<std::string>& out,
                      std::deque<std::string>::iterator at) {
    std::vector<std::string> parts;
    std::string::size_type start = 0;
    while (start < path.size()) {
        std::string::size_type slash = path.find('/', start);
        if (slash == std::string::npos) {
            slash = path.size();
        }
        if (slash > start) {
            parts.push_back(path.substr(start, slash - start));
        }
        start = slash + 1;
    }
    if (!parts.empty() && path.back() == '/') {
        parts.emplace_back(".");
    }
    out.insert(at, parts.begin(), parts.end());
}

bool usable(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        errno = EINVAL;
        return false;
    }
    if (path.empty()) {
        errno = ENOENT;
        return false;
    }
    if (path.size() >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

// A new directory readable by everyone, whatever the umask says: a capture is sent to someone else.
// The mode is set through the directory opened without following a link, so a link that replaced it
// in between is never followed.
bool makeDirectory(int parentFd, const std::string& name) {
    if (::mkdirat(parentFd, name.c_str(), 0755) != 0) {
        return false;
    }
    Fd made(::openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return made.get() >= 0 && ::fchmod(made.get(), 0755) == 0;
}

}  // namespace

RootedFiles::RootedFiles(const std::string& root, Resolver resolver)
    : rootFd_(::open(root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
      portable_(resolver == Resolver::Portable) {}

RootedFiles::~RootedFiles() {
    if (rootFd_ >= 0) {
        ::close(rootFd_);
    }
}

int RootedFiles::open(const std::string& path, int flags) const {
    if (rootFd_ < 0) {
        errno = EBADF;
        return -1;
    }
    if (!usable(path)) {
        return -1;
    }
    if (!portable_.load(std::memory_order_relaxed)) {
        const int fd = openKernel(path, flags);
        const int kernelError = errno;
        if (fd >= 0 || (kernelError != ENOSYS && kernelError != EPERM)) {
            return fd;
        }
        // ENOSYS: a kernel before openat2. EPERM: a sandbox that filters it, or a real refusal, which
        // the walk meets again and reports; only a walk that gets through proves the sandbox.
        const int walked = openPortable(path, flags);
        if (kernelError == ENOSYS || walked >= 0) {
            portable_.store(true);
        }
        return walked;
    }
    return openPortable(path, flags);
}

int RootedFiles::openKernel(const std::string& path, int flags) const {
    struct open_how how = {};
    how.flags = static_cast<unsigned long long>(flags | O_CLOEXEC);
    how.resolve = RESOLVE_IN_ROOT | RESOLVE_NO_MAGICLINKS;
    for (int attempt = 0;; ++attempt) {
        const long fd = ::syscall(SYS_openat2, rootFd_, path.c_str(), &how, sizeof how);
        // EAGAIN: a rename somewhere in the snapshot raced the look-up; the kernel asks for a retry.
        if (fd >= 0 || errno != EAGAIN || attempt == 8) {
            return static_cast<int>(fd);
        }
    }
}

int RootedFiles::openPortable(const std::string& path, int flags) const {
    const int saved = errno;
    std::deque<std::string> pending;
    appendComponents(path, pending, pending.end());
    std::vector<Fd> walked;  // the directories below the root, each opened from the one before it
    auto here = [&]() { return walked.empty() ? rootFd_ : walked.back().get(); };
    int links = 0;
    while (!pending.empty()) {
        const std::string part = std::move(pending.front());
        pending.pop_front();
        const bool last = pending.empty();
        if (part == ".") {
            if (last) {
                break;
            }
            continue;
        }
        if (part == "..") {
            if (!walked.empty()) {
                walked.pop_back();
            }
            continue;
        }
        char target[PATH_MAX];
        const ssize_t n = ::readlinkat(here(), part.c_str(), target, sizeof target);
        if (n >= 0 && (!last || !(flags & O_NOFOLLOW))) {
            if (++links > kMaxLinks) {
                errno = ELOOP;
                return -1;
            }
            const std::string body(target, static_cast<std::size_t>(n));
            if (!body.empty() && body[0] == '/') {
                walked.clear();
            }
            appendComponents(body, pending, pending.begin());
            if (pending.empty()) {
                break;  // a link to "/" itself
            }
            continue;
        }
        if (n < 0 && errno != EINVAL) {
            return -1;  // ENOENT, ENOTDIR, EACCES ... as the kernel would say
        }
        if (last) {
            // Never a link here unless the caller asked for the link itself (O_PATH | O_NOFOLLOW).
            const int fd = ::openat(here(), part.c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
            if (fd >= 0) {
                errno = saved;
            }
            return fd;
        }
        Fd dir(::openat(here(), part.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (dir.get() < 0) {
            return -1;
        }
        walked.push_back(std::move(dir));
    }
    // The path ended on a directory already walked (the root, "..", "dir/."): open it once more.
    const int fd = ::openat(here(), ".", (flags & ~O_NOFOLLOW) | O_CLOEXEC);
    if (fd >= 0) {
        errno = saved;
    }
    return fd;
}

bool RootedFiles::readFile(const std::string& path, std::string& content, std::size_t limit,
                           bool* cut) const {
    // Look first, through a descriptor that opens nothing; then open for reading and make sure the
    // same file was opened.
    struct stat64 seen, opened;
    {
        Fd probe(open(path, O_PATH));
        if (probe.get() < 0 || ::fstat64(probe.get(), &seen) != 0) {
            return false;
        }
    }
    if (!S_ISREG(seen.st_mode)) {
        errno = S_ISDIR(seen.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    Fd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    if (fd.get() < 0 || ::fstat64(fd.get(), &opened) != 0) {
        return false;
    }
    if (!S_ISREG(opened.st_mode) || opened.st_dev != seen.st_dev || opened.st_ino != seen.st_ino) {
        errno = EINVAL;
        return false;
    }
    return readOpenFile(fd.get(), opened, content, limit, cut);
}

bool RootedFiles::readListedFile(const std::string& path, std::string& content, std::size_t limit,
                                 bool* cut) const {
    struct stat64 opened;
    Fd fd(open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY));
    if (fd.get() < 0 || ::fstat64(fd.get(), &opened) != 0) {
        return false;
    }
    if (!S_ISREG(opened.st_mode)) {
        errno = EINVAL;
        return false;
    }
    return readOpenFile(fd.get(), opened, content, limit, cut);
}

bool RootedFiles::listDirectory(const std::string& path, std::vector<sys::DirEntry>& entries) const {
    const int fd = open(path, O_RDONLY | O_DIRECTORY | O_NONBLOCK);
    return fd >= 0 && listOpenDirectory(fd, entries);
}

bool RootedFiles::status(const std::string& path, sys::FileStatus& st) const {
    Fd fd(open(path, O_PATH));
    struct stat64 s;
    if (fd.get() < 0 || ::fstat64(fd.get(), &s) != 0) {
        return false;
    }
    st = fileStatusOf(s);
    return true;
}

bool RootedFiles::readLink(const std::string& path, std::string& target, std::size_t limit) const {
    Fd fd(open(path, O_PATH | O_NOFOLLOW));
    if (fd.get() < 0) {
        return false;
    }
    std::vector<char> buffer(limit + 1, '\0');
    const ssize_t n = ::readlinkat(fd.get(), "", buffer.data(), limit);
    if (n <= 0) {
        return false;
    }
    target.assign(buffer.data(), static_cast<std::size_t>(n));
    return true;
}

bool RootedFiles::fsStatus(const std::string& path, sys::FsStatus& st) const {
    Fd fd(open(path, O_PATH));
    struct statfs64 s;
    if (fd.get() < 0 || ::fstatfs64(fd.get(), &s) != 0) {
        return false;
    }
    st = fsStatusOf(s);
    return true;
}

int RootedFiles::openParent(const std::string& path, std::string& name) const {
    const std::string::size_type slash = path.rfind('/');
    name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        errno = EINVAL;
        return -1;
    }
    return open("/" + (slash == std::string::npos ? std::string() : path.substr(0, slash)),
                O_PATH | O_DIRECTORY);
}

RootedFiles::Kind RootedFiles::kind(const std::string& path, long long* size) const {
    std::string name;
    Fd parent(openParent(path, name));
    struct stat64 s;
    if (parent.get() < 0 || ::fstatat64(parent.get(), name.c_str(), &s, AT_SYMLINK_NOFOLLOW) != 0) {
        return Kind::Missing;
    }
    if (size != nullptr) {
        *size = static_cast<long long>(s.st_size);
    }
    if (S_ISDIR(s.st_mode)) {
        return Kind::Directory;
    }
    if (S_ISREG(s.st_mode)) {
        return Kind::Regular;
    }
    return S_ISLNK(s.st_mode) ? Kind::Link : Kind::Other;
}

bool RootedFiles::isDirectory(const std::string& path) const {
    sys::FileStatus st;
    return status(path, st) && st.isDirectory;
}

bool RootedFiles::makeDirectories(const std::string& given) const {
    const std::string::size_type end = given.find_last_not_of('/');
    const std::string path = end == std::string::npos ? given.substr(0, 1) : given.substr(0, end + 1);
    if (!usable(path)) {
        return false;
    }
    if (isDirectory(path)) {
        return true;
    }
    std::string name;
    {
        // Only a missing directory above is made here; anything else is reported as it is.
        Fd parent(openParent(path, name));
        if (parent.get() >= 0) {
            return makeDirectory(parent.get(), name) || (errno == EEXIST && isDirectory(path));
        }
        if (errno != ENOENT) {
            return false;
        }
    }
    const std::string::size_type slash = path.find_last_not_of('/', path.rfind('/'));
    if (slash == std::string::npos || !makeDirectories(path.substr(0, slash + 1))) {
        return false;
    }
    Fd parent(openParent(path, name));
    return parent.get() >= 0 && (makeDirectory(parent.get(), name) || (errno == EEXIST && isDirectory(path)));
}

bool RootedFiles::writeFile(const std::string& path, const std::string& content) const {
    std::string name;
    Fd parent(openParent(path, name));
    if (parent.get() < 0) {
        return false;
    }
    // Only a regular file is written over: a device node left in the directory is never opened.
    struct stat64 s;
    if (::fstatat64(parent.get(), name.c_str(), &s, AT_SYMLINK_NOFOLLOW) == 0 && !S_ISREG(s.st_mode)) {
        errno = S_ISDIR(s.st_mode) ? EISDIR : EINVAL;
        return false;
    }
    // A new file renamed into place: a hard link or a file someone put there is replaced, never written
    // into, and a write that fails leaves what was there. A capture writes many small files and is
    // taken again after a crash, so they are not each synced to the disk.
    try {
        SafeFile file(parent.get(), name, 0644, SafeFile::Sync::None);
        file.stream().write(content.data(), static_cast<std::streamsize>(content.size()));
        file.commit();
    } catch (const FileWriteError& e) {
        errno = e.code() != 0 ? e.code() : EINVAL;
        return false;
    }
    return true;
}

bool RootedFiles::makeLink(const std::string& target, const std::string& path) const {
    std::string name;
    Fd parent(openParent(path, name));
    return parent.get() >= 0 && ::symlinkat(target.c_str(), parent.get(), name.c_str()) == 0;
}

bool RootedFiles::remove(const std::string& path) const {
    std::string name;
    Fd parent(openParent(path, name));
    return parent.get() >= 0 && ::unlinkat(parent.get(), name.c_str(), 0) == 0;
}

}  // namespace vessa::sal::posix
