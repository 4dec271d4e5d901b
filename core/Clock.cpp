// Clock: the runtime's wall-clock millisecond reader and millisecond sleep.
#include "core/Clock.h"

#include <sys/time.h>
#include <unistd.h>

#include "core/Stopwatch.h"

uint32_t nowMs() {
    timeval now;
    gettimeofday(&now, nullptr);
    return uint32_t(now.tv_sec) * 1000u + uint32_t(now.tv_usec / 1000);
}

static void napWithUsleep(uint32_t microseconds) { usleep(microseconds); }

void sleepMs(uint32_t ms) { sleepMs(ms, &napWithUsleep); }

void sleepMs(uint32_t ms, void (*nap)(uint32_t microseconds)) {
    // One long usleep would overshoot less, but naps of a second keep each
    // call within the range usleep is guaranteed to accept.
    const uint32_t longestNapMs = 1000;
    Stopwatch watch;
    watch.start();
    for (;;) {
        uint32_t elapsed = watch.elapsed();
        if (elapsed >= ms)
            return;
        uint32_t remaining = ms - elapsed;
        nap(remaining <= longestNapMs ? remaining * 1000 : longestNapMs * 1000);
    }
}
