// Fuzzes how replay resolves host paths inside a snapshot: the hostile one of support/HostileRoot.h,
// made once per process. The input is a path (up to its first NUL byte); it is resolved by the kernel
// (openat2) and by the fallback walk.
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
#include "support/HostileRoot.h"

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

Snapshot* makeSnapshot() {
    auto* s = new Snapshot;
    char templ[] = "/tmp/vessa-fuzz-XXXXXX";
    if (::mkdtemp(templ) == nullptr || (s->root = vessa::test::makeHostileRoot(s->top = templ)).empty()) {
        std::abort();
    }
    struct stat st;
    ::lstat(s->root.c_str(), &st);
    s->inside.emplace(st.st_dev, st.st_ino);
    for (const auto& e : fs::recursive_directory_iterator(s->root)) {
        ::lstat(e.path().c_str(), &st);
        s->inside.emplace(st.st_dev, st.st_ino);
    }
    s->kernel = new RootedFiles(s->root, RootedFiles::Resolver::Kernel);
    s->walk = new RootedFiles(s->root, RootedFiles::Resolver::Portable);
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
