// Fuzzes how replay resolves host paths inside a snapshot. A small snapshot made once per process
// holds the links a hostile one would: absolute ones, ones that climb out with "..", loops, a chain at
// the kernel's bound, links to the file "secret" that sits beside the root, a FIFO. The input is a
// path (up to its first NUL byte); it is resolved by the kernel (openat2) and by the fallback walk.
// Invariants: whatever either opens is a file of the snapshot, never anything outside it; both reach
// the same file, or both fail with the same error; reads, listings and link reads agree.
// Seeds: fuzz/corpus/ReplayResolve
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/view/RootedFiles.h"

namespace fs = std::filesystem;
using vessa::sal::posix::RootedFiles;

namespace {

struct Snapshot {
    std::string top;   // holds "secret" and the root
    std::string root;  // the snapshot
    std::set<std::pair<dev_t, ino_t>> inside;
    RootedFiles* kernel = nullptr;
    RootedFiles* walk = nullptr;
};

Snapshot* g_snapshot = nullptr;

void removeSnapshot() {
    std::error_code ec;
    fs::remove_all(g_snapshot->top, ec);
}

void write(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    FILE* f = std::fopen(path.c_str(), "w");
    std::fputs(content.c_str(), f);
    std::fclose(f);
}

void link(const std::string& target, const std::string& at) {
    fs::create_directories(fs::path(at).parent_path());
    fs::create_symlink(target, at);
}

Snapshot* makeSnapshot() {
    auto* s = new Snapshot;
    char templ[] = "/tmp/vessa-fuzz-XXXXXX";
    if (::mkdtemp(templ) == nullptr) {
        std::abort();
    }
    s->top = templ;
    s->root = s->top + "/root";
    const std::string& r = s->root;
    write(s->top + "/secret", "SECRET");
    write(r + "/proc/mounts", "inside\n");
    write(r + "/proc/partitions", "major minor  #blocks  name\n");
    write(r + "/sys/devices/pci/sda/size", "16\n");
    write(r + "/sys/devices/pci/sda/sda1/size", "8\n");
    write(r + "/.vessa/commands/pvdisplay", "pv\n");
    fs::create_directories(r + "/empty");
    link("/proc/mounts", r + "/etc/mtab");
    link("../devices/pci/sda", r + "/sys/block/sda");
    link("../../sda1", r + "/dev/disk/by-id/a");
    link("../../../../../../..", r + "/up");
    link("/", r + "/abs");
    link("..", r + "/dotdot");
    link("proc/", r + "/slash");
    link("../secret", r + "/out-rel");
    link("/../secret", r + "/out-abs");
    link(s->top + "/secret", r + "/out-full");
    link(s->top, r + "/out-top");
    link("loop-b", r + "/loop-a");
    link("loop-a", r + "/loop-b");
    link("self", r + "/self");
    link("nowhere/at/all", r + "/dangling");
    for (int i = 0; i <= 40; ++i) {
        link(i == 40 ? "proc/mounts" : "c" + std::to_string(i + 1), r + "/c" + std::to_string(i));
    }
    ::mkfifo((r + "/fifo").c_str(), 0644);

    struct stat st;
    ::lstat(r.c_str(), &st);
    s->inside.emplace(st.st_dev, st.st_ino);
    for (const auto& e : fs::recursive_directory_iterator(r)) {
        ::lstat(e.path().c_str(), &st);
        s->inside.emplace(st.st_dev, st.st_ino);
    }
    s->kernel = new RootedFiles(r, RootedFiles::Resolver::Kernel);
    s->walk = new RootedFiles(r, RootedFiles::Resolver::Portable);
    return s;
}

// Opens `path` with both resolvers: the same file or the same error, and never a file outside.
void openBoth(const std::string& path, int flags) {
    errno = 0;
    const int a = g_snapshot->kernel->open(path, flags);
    const int errA = errno;
    errno = 0;
    const int b = g_snapshot->walk->open(path, flags);
    const int errB = errno;
    std::pair<dev_t, ino_t> ids[2];
    int index = 0;
    for (int fd : {a, b}) {
        if (fd >= 0) {
            struct stat st;
            if (::fstat(fd, &st) != 0 || g_snapshot->inside.count({st.st_dev, st.st_ino}) == 0) {
                std::abort();
            }
            ids[index] = {st.st_dev, st.st_ino};
            ::close(fd);
        }
        ++index;
    }
    if ((a >= 0) != (b >= 0) || (a >= 0 && ids[0] != ids[1]) || (a < 0 && errA != errB)) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    g_snapshot = makeSnapshot();
    std::atexit(removeSnapshot);
    if (g_snapshot->kernel->usesPortableWalk()) {
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string path(reinterpret_cast<const char*>(data), size);
    path = path.substr(0, path.find('\0'));
    openBoth(path, O_PATH);
    openBoth(path, O_PATH | O_NOFOLLOW);
    openBoth(path, O_RDONLY | O_DIRECTORY);

    std::string contentA, contentB;
    if (g_snapshot->kernel->readFile(path, contentA) != g_snapshot->walk->readFile(path, contentB) ||
        contentA != contentB || contentA == "SECRET") {
        std::abort();
    }
    std::vector<vessa::sal::sys::DirEntry> entriesA, entriesB;
    if (g_snapshot->kernel->listDirectory(path, entriesA) !=
            g_snapshot->walk->listDirectory(path, entriesB) ||
        entriesA.size() != entriesB.size()) {
        std::abort();
    }
    std::string targetA, targetB;
    if (g_snapshot->kernel->readLink(path, targetA, 512) != g_snapshot->walk->readLink(path, targetB, 512) ||
        targetA != targetB) {
        std::abort();
    }
    return 0;
}
