#include "platform/Pipe.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>

#include "platform/Exception.h"

namespace vessa::sal::xio {

Endpoint::~Endpoint() {
    close();
}

Endpoint::Endpoint(Endpoint&& other) noexcept : fd_(other.fd_) {
    other.fd_ = -1;
}

Endpoint& Endpoint::operator=(Endpoint&& other) noexcept {
    if (this != &other) {
        close();
        fd_ = other.fd_;
        other.fd_ = -1;
    }
    return *this;
}

void Endpoint::close() noexcept {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

Pipe::Pipe(const open::Spec& readSpec, const open::Spec& writeSpec) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        throw SystemException("pipe", errno);
    }
    read_ = Endpoint(fds[0]);
    write_ = Endpoint(fds[1]);
    if (readSpec.inheritance == open::inherit::Enabled) {
        ::fcntl(fds[0], F_SETFD, 0);
    }
    if (writeSpec.inheritance == open::inherit::Enabled) {
        ::fcntl(fds[1], F_SETFD, 0);
    }
}

ssize_t Channel::read(char* buffer, std::size_t size) {
    for (;;) {
        ssize_t n = ::read(endpoint_.id(), buffer, size);
        if (n >= 0) {
            return n;
        }
        if (errno != EINTR) {
            throw SystemException("read", errno);
        }
    }
}

void Channel::write(const char* buffer, std::size_t size) {
    while (size > 0) {
        ssize_t n = ::write(endpoint_.id(), buffer, size);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw SystemException("write", errno);
        }
        buffer += n;
        size -= static_cast<std::size_t>(n);
    }
}

}  // namespace vessa::sal::xio
