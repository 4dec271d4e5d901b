// Event: a flag with a condition variable and millisecond time-outs.
#include "core/Event.h"

#include <sys/time.h>

Event::Event(bool autoReset) : autoReset(autoReset) { pthread_cond_init(&condition, nullptr); }

Event::~Event() { pthread_cond_destroy(&condition); }

void Event::set() {
    ScopedLock lock(mutex);
    signalled = true;
    pthread_cond_signal(&condition);
}

void Event::reset() {
    ScopedLock lock(mutex);
    signalled = false;
}

bool Event::wait(int32_t timeoutMs) {
    if (timeoutMs == -1)
        return waitForever();
    timeval now;
    gettimeofday(&now, nullptr);
    int64_t seconds = now.tv_sec + timeoutMs / 1000;
    int64_t microseconds = now.tv_usec + int64_t(timeoutMs % 1000) * 1000;
    while (microseconds > 999999) {
        microseconds -= 1000000;
        ++seconds;
    }
    timespec deadline;
    deadline.tv_sec = time_t(seconds);
    deadline.tv_nsec = long(microseconds * 1000);
    return waitUntil(deadline);
}

bool Event::waitForever() {
    ScopedLock lock(mutex);
    while (!signalled)
        if (pthread_cond_wait(&condition, mutex.native()) != 0)
            break;
    bool wasSignalled = signalled;
    if (autoReset)
        signalled = false;
    return wasSignalled;
}

// A negative time-out other than -1 gives a deadline in the past (or an
// invalid one, which pthread reports as an error): both end the wait at once.
bool Event::waitUntil(const timespec& deadline) {
    ScopedLock lock(mutex);
    for (;;) {
        if (signalled) {
            if (autoReset)
                signalled = false;
            return true;
        }
        if (pthread_cond_timedwait(&condition, mutex.native(), &deadline) != 0)
            return false;
    }
}
