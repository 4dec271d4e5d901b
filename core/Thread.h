// Thread: runs a delegate on a POSIX thread of its own. The audio device's
// feeding loop runs on one; the loop watches stopRequested() to know when to end.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "core/Delegate.h"

class Thread {
public:
    using RunDelegate = Delegate<void(Thread*)>;

    explicit Thread(uint64_t userValue = 0) : userValue(userValue) {}
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    virtual ~Thread();  // stops a running thread first

    // Hook called at the start of stop(); derived threads tell their loop to end here.
    virtual void requestStop() {}
    // False if a thread is already running.
    virtual bool start();
    // Body of the thread: calls the run delegate with this Thread.
    virtual void run();

    void setRunDelegate(RunDelegate delegate) { runDelegate = delegate; }
    // Asks the loop to end and joins it; cancels the thread if joining fails.
    void stop();
    // stop(), then deletes this object (which must come from new).
    void stopAndDestroy();
    // Scheduling priority p under SCHED_OTHER, given to pthread as -p.
    bool setPriority(int32_t priority);

    bool isRunning() const { return running; }
    // Seen by the running loop once stop() is under way.
    bool stopRequested() const { return stopping.load(std::memory_order_acquire); }
    bool isDestroying() const { return destroying; }
    uint64_t getUserValue() const { return userValue; }

private:
    static void* entry(void* self);

    uint64_t userValue;
    pthread_t handle{};
    bool running = false;  // whether `handle` holds a thread
    std::atomic<bool> stopping{false};
    bool destroying = false;
    RunDelegate runDelegate;
};
