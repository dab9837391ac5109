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

TEST(Thread, RunsTheTaskWithItsOwnArgumentCopy) {
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
}

TEST(Thread, AnExceptionEndsTheThreadNotTheProcess) {
    Worker w;
    Thread t;
    t.wire(std::make_shared<AMethodWithArgDispatchTaskFor<Worker, int>>(&w, &Worker::fail, 7), 262144, 0);
    t.start();
    t.wait();
    EXPECT_EQ(t.failure(), "failed with 7");
    Thread idle;
    idle.wait();  // never started: returns at once
    EXPECT_THROW(idle.start(), vessa::Exception);
}

}  // namespace
