// Core: start-up and shutdown of the runtime.
#include "Core.h"

#include <atomic>

#include "Heap.h"

static std::atomic<int32_t> initCount{0};

void coreInit(const char*) {
    if (initCount.fetch_add(1) + 1 != 1)
        return;
    attachHeap();
}

void coreShutdown() {
    if (initCount.fetch_sub(1) - 1 != 0)
        return;
}
