// Files of a snapshot directory taken as if that directory were the machine's "/".
//
// A snapshot comes from another machine, or from someone who wants to see what replaying it does to
// ours: none of it is trusted. Every host path is resolved inside the root and nowhere else:
// - an absolute symbolic link target starts again at the root (a link to /proc/mounts means
//   <root>/proc/mounts), and ".." never climbs above the root;
// - a chain of more than 40 symbolic links (a loop) fails the call with ELOOP;
// - only regular files are read, and only up to a bound: a FIFO, socket or device node is never opened
//   for reading (it is looked at through an O_PATH descriptor, which neither reads nor runs a driver's
//   open, and refused), and a file larger than the bound gives its first `limit` bytes;
// - writing (a capture) creates, replaces and links only inside the root and never through a symbolic
//   link in the last place of a path.
//
// The kernel resolves with openat2 and RESOLVE_IN_ROOT, one system call per path. On a kernel without
// openat2 (ENOSYS, or a sandbox that refuses it with EPERM) the same rules are walked one component at
// a time with openat and readlinkat, each step relative to a descriptor of the directory before it, so
// that no path outside the root is ever named to the kernel.
//
// An object holds one descriptor of the root, opened in the constructor and closed in the destructor.
// All calls are safe from several threads at once. Paths given are host paths ("/sys/block/sda");
// relative ones are taken from the root as well. A path holding a NUL byte names nothing (EINVAL).
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "platform/view/SystemView.h"

namespace vessa::sal::posix {

class RootedFiles {
  public:
    enum class Resolver {
        Kernel,    // openat2 with RESOLVE_IN_ROOT; falls back to Portable when the kernel refuses it
        Portable,  // one component at a time, the same rules (tests use it to check the fallback)
    };
    // What sits in the last place of a path, the link itself when it is one.
    enum class Kind { Missing, Directory, Regular, Link, Other };

    // Bytes of a file that the readers are given at most.
    static constexpr std::size_t kReadLimit = std::size_t(16) << 20;

    explicit RootedFiles(const std::string& root, Resolver resolver = Resolver::Kernel);
    ~RootedFiles();
    RootedFiles(const RootedFiles&) = delete;
    RootedFiles& operator=(const RootedFiles&) = delete;

    // False when the root could not be opened as a directory; every call then fails.
    bool valid() const { return rootFd_ >= 0; }
    // True once a Kernel resolver has fallen back to the component walk.
    bool usesPortableWalk() const { return portable_.load(); }

    // `path` resolved inside the root and opened with `flags` (O_CLOEXEC is added). A symbolic link in
    // the last place is followed unless `flags` holds O_NOFOLLOW (with O_PATH the link itself is then
    // opened); a trailing "/" or "/." always follows it and requires a directory. Returns a descriptor
    // that the caller closes, or -1 with errno set.
    int open(const std::string& path, int flags) const;

    // Reading (replay). Each returns false when the path does not resolve or is not of the right kind.
    //
    // The content of a regular file, at most `limit` bytes; `cut` (when given) tells whether the file
    // held more.
    bool readFile(const std::string& path, std::string& content, std::size_t limit = kReadLimit,
                  bool* cut = nullptr) const;
    // The same for a path that a listing of its directory has just shown to be a regular file: it is
    // opened for reading at once (one resolution instead of two) and refused unread if it turns out
    // not to be one. Only a snapshot changed between the listing and the open could make a node of
    // another kind be opened here.
    bool readListedFile(const std::string& path, std::string& content, std::size_t limit = kReadLimit,
                        bool* cut = nullptr) const;
    // Entries without "." and "..", sorted by name.
    bool listDirectory(const std::string& path, std::vector<sys::DirEntry>& entries) const;
    // fstat of what the path resolves to; nothing is opened for it, so a block device's size is its
    // st_size (0), never its capacity.
    bool status(const std::string& path, sys::FileStatus& st) const;
    // The target of the symbolic link in the last place (at most `limit` bytes); false when it is none.
    bool readLink(const std::string& path, std::string& target, std::size_t limit) const;
    bool fsStatus(const std::string& path, sys::FsStatus& st) const;

    // Writing (capture). Directories on the way are resolved like any path; the last place is taken
    // as it is. Each sets errno when it returns false.
    //
    // What is in the last place; `size` gets a regular file's size.
    Kind kind(const std::string& path, long long* size = nullptr) const;
    // Whether the path resolves (links followed) to a directory.
    bool isDirectory(const std::string& path) const;
    // Creates the directory and those above it that are missing, each with mode 0755 exactly.
    bool makeDirectories(const std::string& path) const;
    // Gives the last place a new regular file holding `content` (mode 0644 exactly), renamed over a
    // regular file that was there (see platform/SafeFile.h); refuses a link, directory or special file
    // in the last place. The directory above must exist.
    bool writeFile(const std::string& path, const std::string& content) const;
    // Creates a symbolic link holding `target`, which is stored as given and never followed here.
    bool makeLink(const std::string& target, const std::string& path) const;
    // Removes a file or link in the last place (never a directory).
    bool remove(const std::string& path) const;

  private:
    int openKernel(const std::string& path, int flags) const;
    int openPortable(const std::string& path, int flags) const;
    // A descriptor of the directory above the last place, and the last place's name; -1 when the path
    // has no last name of its own ("/", "..", "a/.") or the directory does not resolve.
    int openParent(const std::string& path, std::string& name) const;

    int rootFd_ = -1;
    mutable std::atomic<bool> portable_{false};
};

}  // namespace vessa::sal::posix
