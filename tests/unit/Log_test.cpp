#include "platform/Log.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "support/TestSupport.h"

namespace {

int g_evaluations = 0;
int countedValue() {
    ++g_evaluations;
    return 42;
}

// Nothing is even formatted while no stream is set. (How the lines of a trace read, Enter and Exit
// around its body, is in every golden log.)
TEST(Log, NothingFormattedWithoutAStream) {
    g_evaluations = 0;
    VESSA_LOG_AT("Unit.cpp", "off") << countedValue();
    EXPECT_EQ(g_evaluations, 0);
    vessa::test::LogCapture log;
    VESSA_LOG_AT("Unit.cpp", "on") << countedValue();
    EXPECT_EQ(g_evaluations, 1);
    EXPECT_EQ(log.text(), "[Unit.cpp] on: 42\n");
}

TEST(Log, LinesFromManyThreadsNeverInterleave) {
    vessa::test::LogCapture log;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 500; ++i) {
                VESSA_LOG_AT("Unit.cpp", "worker") << "thread " << t << " line " << i << " end";
            }
        });
    }
    for (std::thread& th : threads) {
        th.join();
    }
    std::vector<std::string> lines = log.lines();
    ASSERT_EQ(lines.size(), 2000u);
    for (const std::string& line : lines) {
        ASSERT_EQ(line.rfind("[Unit.cpp] worker: thread ", 0), 0u) << line;
        ASSERT_EQ(line.substr(line.size() - 4), " end") << line;
    }
}

}  // namespace
