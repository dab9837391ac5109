// A loop device over a sparse temporary file, for integration tests that run as root. Detached and
// its file removed on destruction, also when the test fails.
#pragma once

#include <functional>
#include <string>
#include <vector>

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

// The machine the live tests look at: a mounted ext4 loop device, two loop devices that are the
// physical volumes of a volume group, a blank one, and a GPT disk whose first partition is mounted
// where no table names it and whose second is active swap. Everything is undone on destruction, also
// when a test fails half-way. `ok` tells whether all of it could be made.
struct TestMachine {
    TestMachine();
    ~TestMachine();

    LoopDevice mounted{32 << 20}, pvA{64 << 20}, pvB{64 << 20}, blank{16 << 20}, gpt{40 << 20};
    std::string mountPoint, partitionMountPoint, volumeGroup;
    bool ok = false;

  private:
    std::vector<std::function<void()>> undo_;  // run last first
};

}  // namespace vessa::test
