// Stopwatch: measures elapsed wall-clock time in milliseconds (32-bit, so
// correct across the clock's wrap). The commands time their work with it.
#pragma once

#include <cstdint>

class Stopwatch {
public:
    void reset();      // elapsed 0, not running
    void start();      // remember now, running
    uint32_t stop();   // freezes and returns the elapsed time; again returns the same
    uint32_t elapsed() const;

private:
    uint32_t startMs = 0;
    uint32_t elapsedMs = 0;
    bool running = false;
};
