#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "platform/Exception.h"

using namespace vessa::sal::exec;

namespace {

struct Worker {
    std::atomic<int> total{0};
    void add(int& n) { total += n; }
    void fail(int& n) { throw std::runtime_error("failed with " + std::to_string(n)); }
};

TEST(Thread, RunsTheTaskWithItsOwnArgumentCopyAndKeepsItsFailure) {
    Worker w;
    int argument = 5;
    auto task = std::make_shared<AMethodWithArgDispatchTaskFor<Worker, int>>(&w, &Worker::add, argument);
    argument = 100;  // the task holds its own copy
    Thread t;
    t.wire(task, 262144, 0);
    task.reset();  // the thread keeps the task alive
    t.start();
    Thread copy = t;
    copy.wait();
    t.wait();
    EXPECT_EQ(w.total, 5);
    EXPECT_EQ(t.failure(), "");
    EXPECT_THROW(t.start(), vessa::Exception);
    // An exception ends the thread, not the process.
    Thread failing;
    failing.wire(std::make_shared<AMethodWithArgDispatchTaskFor<Worker, int>>(&w, &Worker::fail, argument),
                 262144, 0);
    failing.start();
    failing.wait();
    EXPECT_EQ(failing.failure(), "failed with 100");
    Thread idle;
    idle.wait();  // never started: returns at once
    EXPECT_THROW(idle.start(), vessa::Exception);
}

}  // namespace
