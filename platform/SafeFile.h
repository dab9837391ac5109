// Files that this program hands to people (the report, the log, a capture, a file fetched from a host)
// written whole or not at all, and never through a name that someone else prepared.
//
// The program often runs as root in directories that other users can write to (the current directory,
// /tmp). Opening the final name with create-and-truncate would follow a link planted there, or write
// into a hard link, and overwrite whatever it points to; a full disk would leave a truncated file in
// place of the old one. So the content goes to a new temporary file beside the final name, created
// exclusively (O_CREAT | O_EXCL | O_NOFOLLOW, nothing can be waiting at its name), given its mode
// explicitly with fchmod (the umask neither widens nor narrows it), written, flushed to the disk and
// renamed over the final name:
// - a link, hard link or someone else's file at the final name is replaced by the rename, never written
//   into or followed;
// - a failure (no space, an I/O error, a rename that is refused) removes the temporary and leaves the
//   old file as it was; the exception says which file and why;
// - two writers of one name each rename a whole file: the name ends with the one or the other.
// A final name that is (or links to) a directory, device, FIFO or socket is refused: renaming over it
// would destroy something that is no file of ours (as root, "/dev/stdout" is a link in /dev), and
// writing into it is what this unit exists to avoid.
//
// Not for several threads on one object; different objects are independent.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <ostream>
#include <streambuf>
#include <string>

#include "platform/Exception.h"

namespace vessa::sal::posix {

// A file could not be written: why() is "cannot write PATH: REASON"; code() is the errno value, or 0
// when the name was refused.
class FileWriteError : public vessa::Exception {
  public:
    FileWriteError(const std::string& path, const std::string& reason, int err);
    const char* typeName() const noexcept override;
    const std::string& reason() const noexcept { return reason_; }

  private:
    std::string reason_;
};

// An output buffer over a descriptor it does not own. A failed write is kept (the first errno) and
// the rest is dropped, so that a long stream of writes fails once, where the caller checks.
class FdBuffer : public std::streambuf {
  public:
    explicit FdBuffer(int fd = -1);
    void setFd(int fd) { fd_ = fd; }
    // 0, or the errno of the first write that failed.
    int error() const { return error_; }

  protected:
    int_type overflow(int_type c) override;
    int sync() override;
    std::streamsize xsputn(const char* data, std::streamsize size) override;

  private:
    bool drain();
    int fd_;
    int error_ = 0;
    char buffer_[64 * 1024];
};

class SafeFile {
  public:
    // Whether commit() flushes the data to the disk before the rename. Without it a failure of the
    // program still never shows a partial file, but a crash of the machine may (a capture's thousands of
    // small files take that risk; the report and the log do not).
    enum class Sync { Data, None };

    // The temporary beside `path` (mode `mode`, exactly). Throws FileWriteError naming `path` when
    // the directory cannot take it, or when `path` is refused (see above).
    SafeFile(const std::string& path, mode_t mode, Sync sync = Sync::Data);
    // The same for the name `name` (one component, no "/") in the directory `dirFd`, which the caller
    // keeps open until the object is gone.
    SafeFile(int dirFd, const std::string& name, mode_t mode, Sync sync = Sync::Data);
    // Removes the temporary unless commit() succeeded.
    ~SafeFile();
    SafeFile(const SafeFile&) = delete;
    SafeFile& operator=(const SafeFile&) = delete;

    // Where the content goes. Errors are kept and thrown by commit().
    std::ostream& stream() { return stream_; }
    // Writes what the stream holds, syncs, and renames the temporary over the final name. Throws
    // FileWriteError naming the final name when any step fails; the temporary is gone either way.
    void commit();

    // The temporary's name in its directory (tests use it).
    const std::string& temporaryName() const { return temp_; }

  private:
    void open(mode_t mode);
    [[noreturn]] void fail(const std::string& what, int err);

    int dirFd_ = -1;
    bool ownsDir_ = false;
    std::string shown_;  // the final name as the caller gave it, for messages
    std::string name_;   // the final name in its directory
    std::string temp_;
    int fd_ = -1;
    Sync sync_;
    FdBuffer buffer_;
    std::ostream stream_;
};

// `content` as the whole new content of `path`, as above.
void writeWholeFile(const std::string& path, const std::string& content, mode_t mode,
                    SafeFile::Sync sync = SafeFile::Sync::Data);

}  // namespace vessa::sal::posix
