// A transport to remote hosts that answers only the agent's environment questions, through `answer`;
// its files are empty and its processes unsupported. The tests that need no real SSH share it.
#pragma once

#include <functional>
#include <string>

#include "platform/hax/Hax.h"

namespace vessa::test {

class StubTransport : public vessa::hax::Transport {
  public:
    using Answer = std::function<std::string(const std::string& address, const std::string& name)>;
    explicit StubTransport(Answer answer) : answer_(std::move(answer)) {}
    std::string envValueOf(const std::string& address, const std::string& name) override {
        return answer_(address, name);
    }
    int listDirectory(const std::string&, const std::string&, std::list<vessa::hax::FSItem>&) override {
        return 0;
    }
    void putFSItem(const std::string&, const std::string&, const std::string&) override {}
    void getFSItem(const std::string&, const std::string&, const std::string&) override {}
    void deleteFSItem(const std::string&, const std::string&) override {}

  private:
    Answer answer_;
};

}  // namespace vessa::test
