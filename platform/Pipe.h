// Pipes, end points and channels of the base library (vessa::sal::xio).
//
// A Pipe owns both of its ends; each end is an Endpoint that closes its descriptor when closed
// explicitly or destroyed. Ends are created close-on-exec unless their open::Spec says
// open::inherit::Enabled, which is how a child process is handed an end.
#pragma once

#include <sys/types.h>
#include <cstddef>

#include "platform/Export.h"

namespace vessa::sal::xio {

namespace open {
namespace inherit {
enum Mode { Disabled, Enabled };
}
struct Spec {
    inherit::Mode inheritance = inherit::Disabled;
    Spec() = default;
    explicit Spec(inherit::Mode m) : inheritance(m) {}
};
}  // namespace open

class VESSA_API Endpoint {
  public:
    Endpoint() = default;
    explicit Endpoint(int fd) : fd_(fd) {}
    ~Endpoint();
    Endpoint(Endpoint&& other) noexcept;
    Endpoint& operator=(Endpoint&& other) noexcept;
    Endpoint(const Endpoint&) = delete;
    Endpoint& operator=(const Endpoint&) = delete;

    // The descriptor, or -1 when closed. This is the id that Process::create takes.
    int id() const noexcept { return fd_; }
    bool isOpen() const noexcept { return fd_ >= 0; }
    void close() noexcept;

  private:
    int fd_ = -1;
};

class VESSA_API Pipe {
  public:
    // Throws vessa::SystemException when the pipe cannot be made.
    Pipe(const open::Spec& readSpec = open::Spec(), const open::Spec& writeSpec = open::Spec());

    Endpoint& readEnd() noexcept { return read_; }
    Endpoint& writeEnd() noexcept { return write_; }

  private:
    Endpoint read_;
    Endpoint write_;
};

// Byte stream over an end point that the channel does not own.
class VESSA_API Channel {
  public:
    explicit Channel(Endpoint& endpoint) : endpoint_(endpoint) {}

    // Reads up to `size` bytes: > 0 bytes read, 0 end of file. Retries on EINTR; throws
    // vessa::SystemException on any other error.
    ssize_t read(char* buffer, std::size_t size);
    // Writes all of `size` bytes; throws vessa::SystemException on error.
    void write(const char* buffer, std::size_t size);

  private:
    Endpoint& endpoint_;
};

}  // namespace vessa::sal::xio
