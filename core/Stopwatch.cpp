// Stopwatch: measures elapsed wall-clock time in milliseconds.
#include "core/Stopwatch.h"

#include "core/Clock.h"

void Stopwatch::reset() {
    elapsedMs = 0;
    running = false;
}

void Stopwatch::start() {
    startMs = nowMs();
    running = true;
}

uint32_t Stopwatch::stop() {
    if (running) {
        elapsedMs = nowMs() - startMs;
        running = false;
    }
    return elapsedMs;
}

uint32_t Stopwatch::elapsed() const { return running ? nowMs() - startMs : elapsedMs; }
