// Event: immediate and timed waits, auto and manual reset, wake-up from
// another thread.
#include <gtest/gtest.h>

#include "core/Clock.h"
#include "core/Event.h"
#include "core/Stopwatch.h"
#include "core/Thread.h"

TEST(EventTest, waitZeroFollowsTheResetMode) {
    Event automatic(true), manual(false);
    EXPECT_FALSE(automatic.wait(0));
    EXPECT_FALSE(manual.wait(0));
    automatic.set();
    EXPECT_TRUE(automatic.wait(0));
    EXPECT_FALSE(automatic.wait(0));  // the successful wait cleared it
    manual.set();
    EXPECT_TRUE(manual.wait(0));
    EXPECT_TRUE(manual.wait(-1));  // still set
    manual.reset();
    EXPECT_FALSE(manual.wait(0));
}

TEST(EventTest, timedWaitLastsAtLeastTheTimeOut) {
    Event event(true);
    // Time-outs whose microseconds must carry into the seconds of the deadline.
    for (int32_t timeoutMs : {1, 30, 999, 1001}) {
        Stopwatch watch;
        watch.start();
        EXPECT_FALSE(event.wait(timeoutMs));
        EXPECT_GE(watch.stop() + 1, uint32_t(timeoutMs)) << timeoutMs;  // clock granularity
    }
}

TEST(EventTest, setFromAnotherThreadWakesTheWaiter) {
    for (int32_t timeoutMs : {-1, 60000}) {
        Event event(true);
        Thread thread(reinterpret_cast<uint64_t>(&event));
        thread.setRunDelegate(Thread::RunDelegate::fromFunction(+[](Thread* self) {
            sleepMs(20);
            reinterpret_cast<Event*>(self->getUserValue())->set();
        }));
        thread.start();
        EXPECT_TRUE(event.wait(timeoutMs));
        EXPECT_FALSE(event.wait(0));
        thread.stop();
    }
}
