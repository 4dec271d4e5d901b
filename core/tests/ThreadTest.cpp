// Thread: start and stop, restart, and stopAndDestroy, each joining the loop.
#include <gtest/gtest.h>

#include <atomic>

#include "core/Clock.h"
#include "core/Event.h"
#include "core/Thread.h"

namespace {

struct LoopUntilStopped {
    Event started{false};
    std::atomic<int32_t> turns{0};

    void loop(Thread* thread) {
        started.set();
        while (!thread->stopRequested()) {
            turns.fetch_add(1);
            sleepMs(1);
        }
    }
    // Joined: the loop has ended, so the count no longer moves.
    bool ended() {
        int32_t turnsNow = turns.load();
        sleepMs(20);
        return turns.load() == turnsNow;
    }
};

}  // namespace

TEST(ThreadTest, startTwiceFailsAndStopJoinsTheLoop) {
    LoopUntilStopped body;
    auto* thread = new Thread;
    thread->setRunDelegate(Thread::RunDelegate::fromMethod<&LoopUntilStopped::loop>(&body));
    for (int round = 0; round < 2; ++round) {  // a stopped thread can be started again
        body.started.reset();
        EXPECT_TRUE(thread->start());
        EXPECT_FALSE(thread->start());
        ASSERT_TRUE(body.started.wait(-1));
        thread->stop();
        EXPECT_FALSE(thread->isRunning() || thread->stopRequested());
        EXPECT_TRUE(body.ended());
    }
    body.started.reset();
    thread->start();
    ASSERT_TRUE(body.started.wait(-1));
    thread->stopAndDestroy();
    EXPECT_TRUE(body.ended());
}
