// A stand-in for an outside program (the launcher "pelo", "xterm"): a small script put first on PATH
// for the object's lifetime that records its argument vector and prints a canned answer.
#pragma once

#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace vessa::test {

class FakeProgram {
  public:
    FakeProgram(const std::string& name, const std::string& answer, int status = 0);
    ~FakeProgram();
    FakeProgram(const FakeProgram&) = delete;
    FakeProgram& operator=(const FakeProgram&) = delete;

    // The argument vectors of every run so far (without the program name), oldest first.
    std::vector<std::vector<std::string>> calls() const;

  private:
    TempDir dir_;
    std::string oldPath_;
};

}  // namespace vessa::test
