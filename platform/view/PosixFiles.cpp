#include "platform/view/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace vessa::sal::posix {

bool readWhole(const std::string& realPath, std::string& content) {
    std::ifstream in(realPath, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream out;
    out << in.rdbuf();
    // A file that opens but cannot be read (a directory, a write-only attribute) counts as unreadable.
    if (in.bad()) {
        return false;
    }
    content = out.str();
    return true;
}

bool listDirectory(const std::string& realPath, std::vector<sys::DirEntry>& entries) {
    DIR* dir = ::opendir(realPath.c_str());
    if (dir == nullptr) {
        return false;
    }
    std::vector<sys::DirEntry> found;
    while (const dirent* e = ::readdir(dir)) {
        std::string name = e->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        sys::DirEntry entry;
        entry.name = name;
        switch (e->d_type) {
            case DT_REG:
                entry.type = sys::DirEntry::File;
                break;
            case DT_DIR:
                entry.type = sys::DirEntry::Directory;
                break;
            case DT_LNK:
                entry.type = sys::DirEntry::Link;
                break;
            case DT_BLK:
                entry.type = sys::DirEntry::BlockDevice;
                break;
            case DT_CHR:
                entry.type = sys::DirEntry::CharDevice;
                break;
            case DT_UNKNOWN:
                entry.type = sys::DirEntry::Unknown;
                break;
            default:
                entry.type = sys::DirEntry::Other;
                break;
        }
        found.push_back(std::move(entry));
    }
    ::closedir(dir);
    std::sort(found.begin(), found.end(),
              [](const sys::DirEntry& a, const sys::DirEntry& b) { return a.name < b.name; });
    entries.insert(entries.end(), found.begin(), found.end());
    return true;
}

bool status(const std::string& realPath, sys::FileStatus& st) {
    struct stat64 s;
    if (::stat64(realPath.c_str(), &s) != 0) {
        return false;
    }
    st = sys::FileStatus();
    st.isDirectory = S_ISDIR(s.st_mode);
    st.isRegular = S_ISREG(s.st_mode);
    st.isBlockDevice = S_ISBLK(s.st_mode);
    st.size = static_cast<long long>(s.st_size);
    st.blockSize = static_cast<long long>(s.st_blksize);
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

bool fsStatus(const std::string& realPath, sys::FsStatus& st) {
    struct statfs64 s;
    if (::statfs64(realPath.c_str(), &s) != 0) {
        return false;
    }
    st.type = static_cast<long long>(s.f_type);
    st.bsize = static_cast<long long>(s.f_bsize);
    st.blocks = s.f_blocks;
    st.bfree = s.f_bfree;
    st.bavail = s.f_bavail;
    st.files = s.f_files;
    st.ffree = s.f_ffree;
    st.namelen = static_cast<long long>(s.f_namelen);
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
