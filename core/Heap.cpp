// Heap: placeholder until the segregated-fit heap lands.
#include "Heap.h"

#include <atomic>

static std::atomic<int> attachCount{0};

void attachHeap() { attachCount.fetch_add(1); }
bool heapAttached() { return attachCount.load() != 0; }
