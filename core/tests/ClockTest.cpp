// The millisecond clock, the sleep's nap splitting and Stopwatch.
#include <gtest/gtest.h>

#include <unistd.h>

#include <vector>

#include "core/Clock.h"
#include "core/Stopwatch.h"

static std::vector<uint32_t> naps;

static void recordNap(uint32_t microseconds) {
    naps.push_back(microseconds);
    usleep(microseconds);
}

TEST(ClockTest, sleepIsSplitIntoNapsOfAtMostOneSecond) {
    sleepMs(0, &recordNap);
    EXPECT_TRUE(naps.empty());
    uint32_t before = nowMs();
    sleepMs(2500, &recordNap);
    EXPECT_GE(nowMs() - before, 2500u);
    ASSERT_GE(naps.size(), 3u);
    EXPECT_EQ(naps[0], 1000000u);
    EXPECT_EQ(naps[1], 1000000u);
    for (uint32_t nap : naps)
        EXPECT_LE(nap, 1000000u);
}

TEST(ClockTest, stopwatchStopTwiceGivesTheSameValue) {
    Stopwatch watch;
    watch.start();
    sleepMs(15);
    uint32_t first = watch.stop();
    EXPECT_GE(first, 15u);
    sleepMs(5);
    EXPECT_EQ(watch.stop(), first);
    EXPECT_EQ(watch.elapsed(), first);
    watch.reset();
    EXPECT_EQ(watch.stop(), 0u);
}
