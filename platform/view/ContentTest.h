// The content test of a device in process: what "file -s PATH" prints about it, from the same magic
// database the file command reads (libmagic), without starting a process per device.
//
// The answer is the command's: "PATH: DESCRIPTION\n", a symbolic link described as one (the command
// does not follow links), "cannot open" with the reason when the device cannot be opened. Only the
// first kContentBytes of a device are read (straight from the device, bypassing the page cache, unless
// the caller hands over a descriptor whose first bytes it had read into the cache for this test):
// every file system the database names keeps its signature there, and reading the command's full
// window of several MiB from each of thousands of blank LUNs would cost gigabytes of reads. Blank
// devices share one answer: a prefix of zeros is described once per length.
//
// Not thread-safe: each thread or helper process uses an object of its own. load() opens the database
// before any helper process is forked, so that the helper itself only reads and matches.
#pragma once

#include <cstddef>
#include <string>

namespace vessa::sal::sys {

class ContentTest {
  public:
    static constexpr std::size_t kContentBytes = 1 << 20;

    ContentTest() = default;
    ~ContentTest();
    ContentTest(const ContentTest&) = delete;
    ContentTest& operator=(const ContentTest&) = delete;

    // Opens and loads the default magic database, once; false when it cannot be had.
    bool load();
    // Appends the command's output for `path` to `output`; false (nothing appended) when the database
    // could not be loaded, which the caller treats as a command that could not be started.
    bool describe(const std::string& path, std::string& output);
    // The same, reading the device through `fd`, a descriptor of `path` open for reading that the
    // caller keeps (and whose first kContentBytes it may have had read into the cache already).
    bool describe(const std::string& path, int fd, std::string& output);

  private:
    void* cookie_ = nullptr;  // magic_t
    bool tried_ = false;
    std::size_t zeroLength_ = 0;  // the length whose all-zero answer is kept, 0 for none
    std::string zeroAnswer_;
};

}  // namespace vessa::sal::sys
