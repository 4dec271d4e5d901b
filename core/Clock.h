// Clock: the runtime's wall-clock millisecond reader and millisecond sleep.
// Used by Stopwatch, Event time-outs and the audio device's resume retries.
#pragma once

#include <cstdint>

// Milliseconds from gettimeofday in 32-bit unsigned arithmetic: the value
// wraps about every 49.7 days, so only differences of two readings mean anything.
uint32_t nowMs();

// Sleeps at least `ms` milliseconds, in naps of at most one second each.
void sleepMs(uint32_t ms);

// The same, napping through `nap` (microseconds per call) instead of usleep;
// lets a test watch how the time is split.
void sleepMs(uint32_t ms, void (*nap)(uint32_t microseconds));
