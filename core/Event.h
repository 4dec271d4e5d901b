// Event: a flag with a condition variable that one thread sets and another
// waits for, with a millisecond time-out. An auto-reset event clears itself
// when a wait succeeds; a manual-reset one stays set until reset().
#pragma once

#include <pthread.h>

#include <cstdint>

#include "core/Mutex.h"

class Event {
public:
    explicit Event(bool autoReset);
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
    ~Event();

    // Wakes one waiter, also for a manual-reset event: the others see the
    // flag on their next wake-up or call.
    void set();
    void reset();
    // timeoutMs -1 waits without limit. True when the event was signalled.
    bool wait(int32_t timeoutMs);

private:
    bool waitForever();
    bool waitUntil(const timespec& deadline);

    pthread_cond_t condition;
    Mutex mutex;
    bool autoReset;
    bool signalled = false;
};
