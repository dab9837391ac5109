#include "cli/LogFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "platform/Log.h"

namespace vessa::cli {

void LogFile::open(const std::string& path) {
    struct stat st;
    if (::lstat(path.c_str(), &st) == 0 && S_ISCHR(st.st_mode)) {
        // O_NOFOLLOW: had the device been swapped for a link since, the link is refused.
        deviceFd_ = ::open(path.c_str(), O_WRONLY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
        if (deviceFd_ < 0 || ::fstat(deviceFd_, &st) != 0 || !S_ISCHR(st.st_mode)) {
            const int err = deviceFd_ < 0 ? errno : EINVAL;
            close();
            throw sal::posix::FileWriteError(path, std::strerror(err), err);
        }
        deviceBuffer_ = std::make_unique<sal::posix::FdBuffer>(deviceFd_);
        deviceStream_ = std::make_unique<std::ostream>(deviceBuffer_.get());
        if (::isatty(deviceFd_)) {
            deviceStream_->setf(std::ios::unitbuf);
        }
        vessa::log::setStream(deviceStream_.get());
        return;
    }
    file_ = std::make_unique<sal::posix::SafeFile>(path, 0600);
    vessa::log::setStream(&file_->stream());
}

void LogFile::close() {
    if (file_ == nullptr && deviceFd_ < 0) {
        return;
    }
    vessa::log::setStream(nullptr);
    if (deviceStream_ != nullptr) {
        deviceStream_->flush();
    }
    if (deviceFd_ >= 0) {
        ::close(deviceFd_);
        deviceFd_ = -1;
    }
    std::unique_ptr<sal::posix::SafeFile> file = std::move(file_);
    if (file != nullptr) {
        file->commit();
    }
}

LogFile::~LogFile() {
    try {
        close();
    } catch (const sal::posix::FileWriteError& e) {
        std::cerr << "vessa-storage: " << e.why() << '\n';
    }
}

}  // namespace vessa::cli
