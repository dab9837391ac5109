// The tests' main: every test starts from the process state a program starts from (no cached hosts, no
// transport to remote hosts, the live system view), whatever the test before it left behind.
#include <gtest/gtest.h>

#include "platform/hax/Hax.h"
#include "platform/view/SystemView.h"

namespace {

class FreshProcessState : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { reset(); }
    void OnTestEnd(const testing::TestInfo&) override { reset(); }

    static void reset() {
        vessa::hax::clearHostCache();
        vessa::hax::setTransport(nullptr);
        vessa::sal::sys::install(vessa::sal::sys::makeLiveView());
    }
};

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new FreshProcessState);
    return RUN_ALL_TESTS();
}
