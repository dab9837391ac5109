#include "cli/Capture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/view/RootedFiles.h"

namespace vessa::cli {

namespace fs = std::filesystem;

namespace {

// A capture is sent to someone else to read: its directory is 0755 whatever the umask says. Returns 0,
// or the error number of the step that failed, taken at once, before anything else can change errno.
int makeReadableDirectory(const std::string& dir) {
    if (::mkdir(dir.c_str(), 0755) != 0) {
        return errno;
    }
    const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        return errno;
    }
    const int err = ::fchmod(fd, 0755) == 0 ? 0 : errno;
    ::close(fd);
    return err;
}

}  // namespace

TargetState prepareCaptureDir(const std::string& dir, bool force, std::string& why) {
    std::error_code ec;
    if (fs::exists(dir, ec)) {
        if (!fs::is_directory(dir, ec)) {
            why = dir + " exists and is not a directory";
            return TargetState::NotWritable;
        }
        if (!force && fs::directory_iterator(dir, ec) != fs::directory_iterator()) {
            why = dir + " is not empty (use --force to write into it)";
            return TargetState::NotEmpty;
        }
    } else if (fs::path parent = fs::path(dir).parent_path();
               !parent.empty() && !fs::is_directory(parent, ec)) {
        why = "cannot create " + dir + ": " + parent.string() + " does not exist";
        return TargetState::NotWritable;
    } else if (const int err = makeReadableDirectory(dir); err != 0) {
        // Made by someone else since it was looked at (another capture): not ours to write into.
        why = "cannot create " + dir + ": " +
              (err == EEXIST ? std::string("something else created it meanwhile") : std::strerror(err));
        return TargetState::NotWritable;
    }
    // Write something now: a directory that cannot take a file fails here, before discovery runs. It
    // is written as the capture writes, inside DIR taken as its own root, so that a link already in a
    // DIR given with --force leads nowhere outside it and is replaced rather than written through.
    const sal::posix::RootedFiles files(dir);
    const std::string probe = "/.vessa/captured-by";
    files.remove(probe);  // what a forced DIR held there: a link is taken away, never followed
    const bool written =
        files.makeDirectories("/.vessa") && files.writeFile(probe, "vessa-storage capture\n");
    files.remove(probe);
    if (!written) {
        why = "cannot write into " + dir + ": permission denied";
        return TargetState::NotWritable;
    }
    return TargetState::Usable;
}

TreeSize measure(const std::string& dir) {
    TreeSize size;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(dir, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec)) {
        if (it->is_symlink(ec)) {
            ++size.files;
            size.bytes += fs::read_symlink(it->path(), ec).string().size();
        } else if (it->is_regular_file(ec)) {
            ++size.files;
            size.bytes += it->file_size(ec);
        }
    }
    return size;
}

}  // namespace vessa::cli
