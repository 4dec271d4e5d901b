// Tests of Thread: start/stop life cycle, the stop request seen by the loop.
#include <gtest/gtest.h>

#include <atomic>

#include "Clock.h"
#include "Event.h"
#include "Thread.h"

namespace {

struct LoopUntilStopped {
    Event started{false};
    std::atomic<int32_t> turns{0};
    Thread* seenThread = nullptr;

    void loop(Thread* thread) {
        seenThread = thread;
        started.set();
        while (!thread->stopRequested()) {
            turns.fetch_add(1);
            sleepMs(1);
        }
    }
};

struct CountingThread : Thread {
    int32_t stopRequests = 0;
    void requestStop() override { ++stopRequests; }
};

}  // namespace

TEST(ThreadTest, startTwiceFailsAndStopJoinsTheLoop) {
    LoopUntilStopped body;
    Thread thread(42);
    thread.setRunDelegate(Thread::RunDelegate::fromMethod<&LoopUntilStopped::loop>(&body));
    EXPECT_TRUE(thread.start());
    EXPECT_FALSE(thread.start());
    ASSERT_TRUE(body.started.wait(-1));
    thread.stop();
    EXPECT_FALSE(thread.isRunning());
    EXPECT_FALSE(thread.stopRequested());
    EXPECT_EQ(body.seenThread, &thread);
    EXPECT_EQ(thread.getUserValue(), 42u);

    // Joined: the loop has ended, so the count no longer moves.
    int32_t turns = body.turns.load();
    sleepMs(20);
    EXPECT_EQ(body.turns.load(), turns);

    // A stopped thread can be started again.
    body.started.reset();
    EXPECT_TRUE(thread.start());
    EXPECT_TRUE(body.started.wait(-1));
    thread.stop();
}

TEST(ThreadTest, stopCallsTheHookOnlyWhileRunning) {
    CountingThread thread;
    thread.stop();
    EXPECT_EQ(thread.stopRequests, 0);
    EXPECT_TRUE(thread.start());  // no delegate: the thread ends at once
    thread.stop();
    EXPECT_EQ(thread.stopRequests, 1);
}

TEST(ThreadTest, stopAndDestroyEndsARunningLoop) {
    LoopUntilStopped body;
    Thread* thread = new Thread;
    thread->setRunDelegate(Thread::RunDelegate::fromMethod<&LoopUntilStopped::loop>(&body));
    thread->start();
    ASSERT_TRUE(body.started.wait(-1));
    EXPECT_TRUE(thread->setPriority(0));
    thread->stopAndDestroy();
    int32_t turns = body.turns.load();
    sleepMs(10);
    EXPECT_EQ(body.turns.load(), turns);
}
