#include "platform/view/ContentTest.h"

#include <fcntl.h>
#include <magic.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace vessa::sal::sys {

namespace {

// The reason for an errno in words. The untranslated text: it takes no lock, so a helper process
// forked while another thread held one can still say it.
std::string reason(int err) {
    const char* text = ::strerrordesc_np(err);
    return text != nullptr ? text : "Unknown error " + std::to_string(err);
}

struct Aligned {
    void operator()(char* p) const { std::free(p); }
};

}  // namespace

ContentTest::~ContentTest() {
    if (cookie_ != nullptr) {
        ::magic_close(static_cast<magic_t>(cookie_));
    }
}

bool ContentTest::load() {
    if (!tried_) {
        tried_ = true;
        magic_t cookie = ::magic_open(MAGIC_DEVICES);
        if (cookie != nullptr && ::magic_load(cookie, nullptr) != 0) {
            ::magic_close(cookie);
            cookie = nullptr;
        }
        cookie_ = cookie;
    }
    return cookie_ != nullptr;
}

bool ContentTest::describe(const std::string& path, std::string& output) {
    return describe(path, -1, output);
}

bool ContentTest::describe(const std::string& path, int given, std::string& output) {
    if (!load()) {
        return false;
    }
    const std::string head = path + ": ";
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
        output += head + "cannot open `" + path + "' (" + reason(errno) + ")\n";
        return true;
    }
    if (S_ISLNK(st.st_mode)) {
        char target[4096];
        const ssize_t n = ::readlink(path.c_str(), target, sizeof target);
        output +=
            head + "symbolic link to " + std::string(target, n > 0 ? static_cast<std::size_t>(n) : 0) + "\n";
        return true;
    }
    if (S_ISDIR(st.st_mode)) {
        output += head + "directory\n";
        return true;
    }
    // Straight from the device where it allows that: a scan of thousands of devices then neither
    // fills the page cache nor waits for it. A given descriptor is read through the cache, which its
    // owner has asked to hold these bytes already.
    int fd = given >= 0 ? given : ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_DIRECT);
    if (fd < 0 && errno == EINVAL) {
        fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    }
    if (fd < 0) {
        output += head + "cannot open `" + path + "' (" + reason(errno) + ")\n";
        return true;
    }
    const auto release = [&] {
        if (fd != given) {
            ::close(fd);
        }
    };
    void* raw = nullptr;
    if (::posix_memalign(&raw, 4096, kContentBytes) != 0) {
        release();
        return false;
    }
    std::unique_ptr<char, Aligned> buffer(static_cast<char*>(raw));
    std::size_t length = 0;
    bool failed = false;
    while (length < kContentBytes) {
        const ssize_t n =
            ::pread(fd, buffer.get() + length, kContentBytes - length, static_cast<off_t>(length));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0 && errno == EINVAL && length == 0) {
            // A device that refuses direct reads of this size: read it through the cache.
            const int flags = ::fcntl(fd, F_GETFL);
            if (flags >= 0 && (flags & O_DIRECT) != 0 && ::fcntl(fd, F_SETFL, flags & ~O_DIRECT) == 0) {
                continue;
            }
        }
        if (n < 0) {
            failed = length == 0;
            break;
        }
        if (n == 0) {
            break;
        }
        length += static_cast<std::size_t>(n);
    }
    const int readError = errno;
    release();
    if (failed) {
        output += head + "ERROR: cannot read `" + path + "' (" + reason(readError) + ")\n";
        return true;
    }
    const char* data = buffer.get();
    const bool zeros = length > 0 && data[0] == 0 && std::memcmp(data, data + 1, length - 1) == 0;
    if (zeros && length == zeroLength_) {
        output += head + zeroAnswer_ + "\n";
        return true;
    }
    const char* described = ::magic_buffer(static_cast<magic_t>(cookie_), data, length);
    const std::string text = described != nullptr
                                 ? described
                                 : std::string("ERROR: ") + ::magic_error(static_cast<magic_t>(cookie_));
    if (zeros && described != nullptr) {
        zeroLength_ = length;
        zeroAnswer_ = text;
    }
    output += head + text + "\n";
    return true;
}

}  // namespace vessa::sal::sys
