// The file that `--log FILE` names, written during the run and put in place when the run ends.
//
// The log is streamed while discovery runs, so it cannot be written whole at the end like the report.
// It still goes to a new temporary file beside FILE (created exclusively, mode 0600: the log names
// this machine's devices and mounts, and is nobody else's to read) that is renamed over FILE when the
// run ends, also when it fails, since a failed run is when the log is read. Opening FILE itself
// with O_NOFOLLOW would refuse a planted link but still write into a hard link or into a file another
// user made there and can read; the rename replaces whatever is at the name and writes into none of
// it. The price: until the run ends the log is under the temporary's hidden name (".FILE.xxxxxxxx"
// beside FILE), and a run that is killed leaves it there.
//
// FILE that is a character device itself (not a link to one), a terminal or /dev/null, is written to
// directly, with each line at once on a terminal: there is nothing to replace and someone is reading.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "platform/SafeFile.h"

namespace vessa::cli {

class LogFile {
  public:
    LogFile() = default;
    // Stops the library's logging, puts the file in place and says on standard error when that fails.
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    // Opens FILE as above and makes it the library's log. Throws sal::posix::FileWriteError.
    void open(const std::string& path);
    // Puts the file in place now (the destructor does it otherwise). Throws sal::posix::FileWriteError.
    void close();

  private:
    std::unique_ptr<sal::posix::SafeFile> file_;
    int deviceFd_ = -1;
    std::unique_ptr<sal::posix::FdBuffer> deviceBuffer_;
    std::unique_ptr<std::ostream> deviceStream_;
};

}  // namespace vessa::cli
