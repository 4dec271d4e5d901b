// Heap: the process-wide allocator behind the global operator new/delete.
// Before attachHeap() the operators fall through to malloc/free; once
// attached the heap serves every allocation for the rest of the process.
#pragma once

#include <cstddef>

// Attaches the heap (counted atomically; never detached).
void attachHeap();
bool heapAttached();
