// A loop device over a sparse temporary file, for integration tests that run as root. Detached and
// its file removed on destruction, also when the test fails.
#pragma once

#include <string>

namespace vessa::test {

bool runningAsRoot();

// Runs a program to its end; returns its exit status (-1 when it cannot be started).
int run(const std::string& commandLine, std::string* output = nullptr);

class LoopDevice {
  public:
    explicit LoopDevice(unsigned long long bytes);
    ~LoopDevice();
    LoopDevice(const LoopDevice&) = delete;
    LoopDevice& operator=(const LoopDevice&) = delete;

    bool ok() const { return !device_.empty(); }
    const std::string& device() const { return device_; }   // /dev/loopN
    std::string name() const { return device_.substr(5); }  // loopN

  private:
    std::string file_;
    std::string device_;
};

}  // namespace vessa::test
