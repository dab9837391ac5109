#include "platform/SafeFile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vessa::sal::posix {

FileWriteError::FileWriteError(const std::string& path, const std::string& reason, int err)
    : Exception("cannot write " + path + ": " + reason, err, err != 0 ? sal::err::kPosix : sal::err::kVessa),
      reason_(reason) {}

const char* FileWriteError::typeName() const noexcept {
    return "vessa::FileWriteError";
}

FdBuffer::FdBuffer(int fd) : fd_(fd) {
    setp(buffer_, buffer_ + sizeof buffer_);
}

bool FdBuffer::drain() {
    const char* data = pbase();
    std::size_t left = static_cast<std::size_t>(pptr() - pbase());
    while (left > 0 && error_ == 0) {
        const ssize_t n = ::write(fd_, data, left);
        if (n < 0) {
            if (errno != EINTR) {
                error_ = errno;
            }
            continue;
        }
        data += n;
        left -= static_cast<std::size_t>(n);
    }
    setp(buffer_, buffer_ + sizeof buffer_);
    return error_ == 0;
}

FdBuffer::int_type FdBuffer::overflow(int_type c) {
    if (!drain()) {
        return traits_type::eof();
    }
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
    }
    return traits_type::not_eof(c);
}

int FdBuffer::sync() {
    return drain() ? 0 : -1;
}

std::streamsize FdBuffer::xsputn(const char* data, std::streamsize size) {
    std::streamsize done = 0;
    while (done < size) {
        if (pptr() == epptr() && !drain()) {
            return done;
        }
        const std::streamsize room = std::min<std::streamsize>(epptr() - pptr(), size - done);
        std::memcpy(pptr(), data + done, static_cast<std::size_t>(room));
        pbump(static_cast<int>(room));
        done += room;
    }
    return done;
}

namespace {

// Whether the final name may be replaced: missing, a regular file, or a link that leads to one or to
// nothing. "" when it may, else why not.
std::string refusal(int dirFd, const std::string& name) {
    struct stat st;
    if (::fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || S_ISREG(st.st_mode)) {
        return "";
    }
    if (S_ISLNK(st.st_mode)) {
        // Looked at, never written through: only what the rename would destroy is decided here.
        if (::fstatat(dirFd, name.c_str(), &st, 0) != 0 || S_ISREG(st.st_mode)) {
            return "";
        }
        return "it is a link to something other than a regular file, which is never replaced";
    }
    return S_ISDIR(st.st_mode) ? "it is a directory" : "it is not a regular file, which is never replaced";
}

}  // namespace

SafeFile::SafeFile(const std::string& path, mode_t mode, Sync sync)
    : shown_(path), sync_(sync), stream_(&buffer_) {
    const std::string::size_type slash = path.rfind('/');
    name_ = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    if (name_.empty() || name_ == "." || name_ == "..") {
        throw FileWriteError(shown_, std::strerror(EISDIR), EISDIR);
    }
    dirFd_ = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd_ < 0) {
        const int err = errno;
        throw FileWriteError(shown_, std::strerror(err), err);
    }
    ownsDir_ = true;
    try {
        open(mode);
    } catch (...) {
        ::close(dirFd_);
        throw;
    }
}

SafeFile::SafeFile(int dirFd, const std::string& name, mode_t mode, Sync sync)
    : dirFd_(dirFd), shown_(name), name_(name), sync_(sync), stream_(&buffer_) {
    if (name_.empty() || name_ == "." || name_ == ".." || name_.find('/') != std::string::npos) {
        throw FileWriteError(shown_, std::strerror(EINVAL), EINVAL);
    }
    open(mode);
}

void SafeFile::open(mode_t mode) {
    const std::string why = refusal(dirFd_, name_);
    if (!why.empty()) {
        throw FileWriteError(shown_, why, 0);
    }
    // A hidden name of its own: random, and created exclusively, so that nothing planted at a name we
    // could be expected to use is ever opened. A name taken already is simply passed over.
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    for (int attempt = 0; attempt < 100 && fd_ < 0; ++attempt) {
        unsigned char random[8];
        if (::getrandom(random, sizeof random, 0) != static_cast<ssize_t>(sizeof random)) {
            fail("cannot name a temporary file", errno);
        }
        temp_ = "." + name_.substr(0, 200) + ".";
        for (unsigned char r : random) {
            temp_ += kLetters[r % (sizeof kLetters - 1)];
        }
        fd_ = ::openat(dirFd_, temp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC,
                       mode & 07777);
        if (fd_ < 0 && errno != EEXIST) {
            const int err = errno;
            temp_.clear();
            fail("", err);
        }
    }
    if (fd_ < 0) {
        temp_.clear();
        fail("", EEXIST);
    }
    if (::fchmod(fd_, mode & 07777) != 0) {
        fail("", errno);
    }
    buffer_.setFd(fd_);
}

void SafeFile::fail(const std::string& what, int err) {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
    if (!temp_.empty()) {
        ::unlinkat(dirFd_, temp_.c_str(), 0);
        temp_.clear();
    }
    throw FileWriteError(shown_, (what.empty() ? "" : what + ": ") + std::strerror(err), err);
}

SafeFile::~SafeFile() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
    if (!temp_.empty()) {
        ::unlinkat(dirFd_, temp_.c_str(), 0);
    }
    if (ownsDir_) {
        ::close(dirFd_);
    }
}

void SafeFile::commit() {
    if (fd_ < 0) {
        fail("", EBADF);
    }
    stream_.flush();
    if (buffer_.error() != 0) {
        fail("", buffer_.error());
    }
    if (sync_ == Sync::Data && ::fsync(fd_) != 0) {
        fail("", errno);
    }
    const int fd = fd_;
    fd_ = -1;
    if (::close(fd) != 0 && errno != EINTR) {
        fail("", errno);
    }
    if (::renameat(dirFd_, temp_.c_str(), dirFd_, name_.c_str()) != 0) {
        fail("", errno);
    }
    temp_.clear();
    if (sync_ == Sync::Data) {
        // The new name itself lasts once the directory is on the disk; a directory opened only as a path
        // cannot be synced, and the file is whole either way.
        ::fsync(dirFd_);
    }
}

void writeWholeFile(const std::string& path, const std::string& content, mode_t mode, SafeFile::Sync sync) {
    SafeFile file(path, mode, sync);
    file.stream().write(content.data(), static_cast<std::streamsize>(content.size()));
    file.commit();
}

}  // namespace vessa::sal::posix
