// Shared test helpers: a captured log stream and temporary directories.
#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace vessa::test {

// Sets an in-memory log stream for its lifetime and restores "no stream" afterwards.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::string text() const { return out_.str(); }
    // The logged lines with their "[unit] trace: " prefix removed.
    std::vector<std::string> messages() const;
    // Whole lines, prefix included.
    std::vector<std::string> lines() const;
    bool hasMessage(const std::string& message) const;

  private:
    std::ostringstream out_;
};

// A fresh directory under the system's temporary directory, removed with everything in it.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    // Writes `content` to path()/relative, creating the directories on the way; returns the full path.
    std::string write(const std::string& relative, const std::string& content) const;

  private:
    std::string path_;
};

// Whole content of a file ("" when it cannot be read).
std::string readFile(const std::string& path);

// A file of tests/data without its first (provenance) line.
std::string dataBody(const std::string& relative);

}  // namespace vessa::test
