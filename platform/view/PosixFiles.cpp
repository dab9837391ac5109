#include "platform/view/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

namespace vessa::sal::posix {

bool readOpenFile(int fd, const struct stat64& st, std::string& content, std::size_t limit, bool* cut) {
    std::string data;
    data.resize(std::min<std::size_t>(static_cast<std::size_t>(std::max<off64_t>(st.st_size, 0)), limit) + 1);
    std::size_t got = 0;
    bool more = false;
    for (;;) {
        if (got == data.size()) {
            if (got > limit) {
                more = true;
                break;
            }
            data.resize(std::min(limit + 1, data.size() * 2 + 4096));
        }
        const ssize_t n = ::read(fd, &data[got], data.size() - got);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        if (n == 0) {
            break;
        }
        got += static_cast<std::size_t>(n);
        // A regular file reads short only at its end: once the size stat gave is reached, no further
        // read is needed to see the end.
        if (got == static_cast<std::size_t>(std::max<off64_t>(st.st_size, 0)) && got < data.size()) {
            break;
        }
    }
    if (got > limit) {
        more = true;
        got = limit;
    }
    data.resize(got);
    content = std::move(data);
    if (cut != nullptr) {
        *cut = more;
    }
    return true;
}

bool readWhole(const std::string& realPath, std::string& content) {
    const int fd = ::open(realPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat64 st;
    const bool read = ::fstat64(fd, &st) == 0 &&
                      readOpenFile(fd, st, content, std::numeric_limits<std::size_t>::max() - 1, nullptr);
    ::close(fd);
    return read;
}

bool listOpenDirectory(int fd, std::vector<sys::DirEntry>& entries) {
    // getdents64 into a buffer of our own: a listing per device of a large host is too frequent for
    // opendir's allocation of one per directory.
    alignas(8) char buffer[32768];
    std::vector<sys::DirEntry> found;
    for (;;) {
        const long n = ::syscall(SYS_getdents64, fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            ::close(fd);
            return false;
        }
        if (n == 0) {
            break;
        }
        for (long at = 0; at < n;) {
            const auto* e = reinterpret_cast<const struct dirent64*>(buffer + at);
            at += e->d_reclen;
            const char* name = e->d_name;
            if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
                continue;
            }
            found.push_back(sys::DirEntry{name, entryType(e->d_type)});
        }
    }
    ::close(fd);
    std::sort(found.begin(), found.end(),
              [](const sys::DirEntry& a, const sys::DirEntry& b) { return a.name < b.name; });
    entries.insert(entries.end(), std::make_move_iterator(found.begin()),
                   std::make_move_iterator(found.end()));
    return true;
}

sys::DirEntry::Type entryType(unsigned char type) {
    switch (type) {
        case DT_REG:
            return sys::DirEntry::File;
        case DT_DIR:
            return sys::DirEntry::Directory;
        case DT_LNK:
            return sys::DirEntry::Link;
        case DT_BLK:
            return sys::DirEntry::BlockDevice;
        case DT_CHR:
            return sys::DirEntry::CharDevice;
        case DT_UNKNOWN:
            return sys::DirEntry::Unknown;
        default:
            return sys::DirEntry::Other;
    }
}

bool listDirectory(const std::string& realPath, std::vector<sys::DirEntry>& entries) {
    const int fd = ::open(realPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return fd >= 0 && listOpenDirectory(fd, entries);
}

bool status(const std::string& realPath, sys::FileStatus& st) {
    struct stat64 s;
    if (::stat64(realPath.c_str(), &s) != 0) {
        return false;
    }
    st = fileStatusOf(s);
    if (st.isBlockDevice) {
        int fd = ::open(realPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (fd >= 0) {
            unsigned long long bytes = 0;
            if (::ioctl(fd, BLKGETSIZE64, &bytes) == 0) {
                st.size = static_cast<long long>(bytes);
            }
            ::close(fd);
        }
    }
    return true;
}

bool readLink(const std::string& realPath, std::string& target, std::size_t limit) {
    std::vector<char> buffer(limit + 1, '\0');
    ssize_t n = ::readlink(realPath.c_str(), buffer.data(), limit);
    if (n <= 0) {
        return false;
    }
    target.assign(buffer.data(), static_cast<std::size_t>(n));
    return true;
}

sys::FileStatus fileStatusOf(const struct stat64& s) {
    sys::FileStatus st;
    st.isDirectory = S_ISDIR(s.st_mode);
    st.isRegular = S_ISREG(s.st_mode);
    st.isBlockDevice = S_ISBLK(s.st_mode);
    st.size = static_cast<long long>(s.st_size);
    st.blockSize = static_cast<long long>(s.st_blksize);
    return st;
}

sys::FsStatus fsStatusOf(const struct statfs64& s) {
    sys::FsStatus st;
    st.type = static_cast<long long>(s.f_type);
    st.bsize = static_cast<long long>(s.f_bsize);
    st.blocks = s.f_blocks;
    st.bfree = s.f_bfree;
    st.bavail = s.f_bavail;
    st.files = s.f_files;
    st.ffree = s.f_ffree;
    st.namelen = static_cast<long long>(s.f_namelen);
    return st;
}

bool fsStatus(const std::string& realPath, sys::FsStatus& st) {
    struct statfs64 s;
    if (::statfs64(realPath.c_str(), &s) != 0) {
        return false;
    }
    st = fsStatusOf(s);
    return true;
}

bool firstLineReadable(const std::string& realPath) {
    FILE* f = ::fopen64(realPath.c_str(), "rw");
    if (f == nullptr) {
        return false;
    }
    char line[4096];
    bool ok = ::fgets(line, sizeof line, f) != nullptr;
    ::fclose(f);
    return ok;
}

}  // namespace vessa::sal::posix
