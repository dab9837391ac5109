// File operations on real paths of this machine, shared by the live view (paths as given) and the
// replay view (paths under a snapshot root). Nothing here knows about snapshots.
#pragma once

#include <sys/stat.h>
#include <sys/vfs.h>

#include <string>
#include <vector>

#include "platform/view/SystemView.h"

namespace vessa::sal::posix {

bool readWhole(const std::string& realPath, std::string& content);
// Reads the open file `fd`, of which fstat gave `st`, to its end, at most `limit` bytes (less than the
// largest size_t); `*cut`, when given, tells whether more was there. False when a read fails (a
// directory, a write-only attribute), `content` then untouched.
bool readOpenFile(int fd, const struct stat64& st, std::string& content, std::size_t limit, bool* cut);
// Entries without "." and "..", sorted by name.
bool listDirectory(const std::string& realPath, std::vector<sys::DirEntry>& entries);
// The same for a directory already open (read-only); closes `fd` in any case.
bool listOpenDirectory(int fd, std::vector<sys::DirEntry>& entries);
// A directory entry's d_type as the view names it.
sys::DirEntry::Type entryType(unsigned char type);
// stat() following links; a block device's size is its capacity (BLKGETSIZE64).
bool status(const std::string& realPath, sys::FileStatus& st);
bool readLink(const std::string& realPath, std::string& target, std::size_t limit);
bool fsStatus(const std::string& realPath, sys::FsStatus& st);
// The view's form of a stat answer (a block device's size as stat gives it).
sys::FileStatus fileStatusOf(const struct stat64& s);
// The view's form of a statfs answer.
sys::FsStatus fsStatusOf(const struct statfs64& s);
// Opens with fopen64 in the mode "rw" (read, as the C library takes it) and reads a first line of up
// to 4096 bytes.
bool firstLineReadable(const std::string& realPath);

}  // namespace vessa::sal::posix
