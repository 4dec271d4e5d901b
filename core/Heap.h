// Heap: a two-level segregated-fit allocator over large anonymous mmap
// segments. The process heap serves the global operator new/delete once
// attachHeap() has run; tests and benchmarks may also make private instances.
//
// Sizes go up in steps of 8 bytes from 8. Each free list keeps its blocks in
// address order (FreeList), and an allocation takes the lowest-addressed
// block that fits from the first list that has one.
#pragma once

#include <atomic>

#include <bit>
#include <cstddef>
#include <cstdint>

#include "core/FreeList.h"
#include "core/NodePool.h"

// The heap's counters, in the order printStatistics() shows them. Sizes are
// in bytes; a block's size is its user area, without the 16-byte header.
// Free blocks are counted whether or not they made it onto a list.
struct HeapStatistics {
    uint64_t allocBlocks = 0;       // blocks in use
    uint64_t allocSize = 0;         // bytes in blocks in use
    uint64_t peakAllocSize = 0;     // highest allocSize so far
    uint64_t peakBlockSize = 0;     // highest allocSize + headers of the blocks in use
    uint64_t freeBlocks = 0;        // free blocks
    uint64_t freeSize = 0;          // bytes in free blocks
    uint64_t totalSize = 0;         // bytes mapped in all segments
    uint64_t bookKeeping = 0;       // headers and segment terminators
    uint64_t maxAllocSize = 0;      // largest block ever handed out
    uint64_t maxFreeSize = 0;       // largest free block now
    uint64_t numSegments = 0;
    uint64_t largestFreeChain = 0;  // longest free list now
    uint64_t allocCalls = 0;
    uint64_t reallocCalls = 0;
    uint64_t freeCalls = 0;
    uint64_t reallocSucc = 0;       // reallocations done in place
    uint64_t slowBucket = 0;        // searches whose exact list was not empty but had no block that fit
};

struct HeapBlock;

class Heap {
public:
    static constexpr int32_t listCount = 1536;
    static constexpr int32_t maxSegments = 256;

    constexpr Heap() = default;
    Heap(const Heap&) = delete;
    Heap& operator=(const Heap&) = delete;
    ~Heap();  // unmaps every segment; the process heap is never destroyed

    // Returns null when the request cannot be met; alignment must be a power
    // of two (values below 8 mean 8).
    void* allocate(size_t size, size_t alignment);
    // Returns false, doing nothing, when address lies outside every segment.
    bool release(void* address);
    // Grows or shrinks in place when it can, else moves the content to a new
    // block aligned like operator new. Null address: a plain allocation.
    // Returns null (the old block untouched) on failure or a foreign address.
    void* reallocate(void* address, size_t size);
    bool owns(const void* address);

    HeapStatistics statistics();
    void printStatistics();
    void dumpBlocks();
    // Walks every block and list and checks the heap's invariants.
    bool verify();
    // Bytes mapped for the free lists' index, beside the segments.
    uint64_t indexSize();

    struct BlockView {
        char* user;
        uint64_t size;
        bool inUse;
    };
    // Hands every block to visit, segment by segment, in address order,
    // under the heap lock: visit must not use this heap.
    void forEachBlock(void (*visit)(void* context, const BlockView& block), void* context);

    // Free list for a search size: the first list whose bound is not below it.
    // Lists 0 to 127 have bounds 0, 4, ... 508; from 512 on, each power of two
    // is split into 64 lists of equal width; 1 GiB and more share the last.
    // Both halves come from one formula, without branches (sizes arrive in
    // random order): with t = size - 1 and m the top bit of t (at least 8),
    // the list is (m - 8) * 64 + (t >> (m - 6)) + 1.
    static int32_t listIndex(uint64_t searchSize) {
        if (searchSize == 0)
            return 0;
        uint64_t t = searchSize - 1;
        int32_t top = std::bit_width(t | 256) - 1;
        int32_t index = ((top - 8) << 6) + int32_t(t >> (top - 6)) + 1;
        return searchSize >= (uint64_t(1) << 30) ? listCount - 1 : index;
    }

private:
    struct Segment {
        char* start;
        uint64_t length;
    };

    // Where a request goes: a listed free block (its size as listed) and the
    // user area inside it.
    struct Fit {
        HeapBlock* block;
        uint64_t blockSize;
        char* user;
        int32_t list;
    };

    void* allocateLocked(size_t size, size_t alignment);
    void* allocatePlain(uint64_t size, uint64_t searchSize, uint64_t alignment);
    void* allocateCarved(size_t size, size_t alignment);
    void releaseBlock(HeapBlock* block);
    void* reallocateLocked(void* address, size_t size);
    bool findFit(uint64_t searchSize, uint64_t size, uint64_t alignment, Fit& fit);
    bool lowestFitIn(int32_t list, uint64_t size, uint64_t alignment, Fit& fit);
    char* carve(const Fit& fit, uint64_t size);
    HeapBlock* liveBlockAt(void* address);
    static HeapBlock* liveBlockIn(const Segment* segment, void* address);
    HeapBlock* splitTail(HeapBlock* block, uint64_t size);
    void coalesceAndList(HeapBlock* block);
    bool mapSegment(uint64_t size, uint64_t alignment);
    const Segment* findSegment(const void* address);
    int32_t firstNonEmptyList(int32_t from) const;
    void addToList(int32_t list, uint64_t key, uint64_t size);
    void removeFromList(int32_t list, uint64_t key, uint64_t size);
    void moveInList(int32_t wasList, uint64_t wasKey, uint64_t wasSize, uint64_t key, uint64_t size);
    void markListEmpty(int32_t list);
    void notePeaks(const HeapBlock* block);
    bool verifyLocked();
    bool verifyLists(uint64_t& listed);

    std::atomic<int32_t> lock{0};  // 1 while held (see HeapLock)
    FreeList lists[listCount];
    NodePool indexNodes;  // the lists' nodes
    uint64_t bitmap[listCount / 64] = {};
    uint32_t bitmapSummary = 0;  // bit w set when bitmap[w] is non-zero
    Segment segments[maxSegments] = {};  // sorted by start address
    int32_t segmentCount = 0;
    int32_t lastSegment = 0;  // where the latest release landed
    // Free blocks left off their lists when the index could not grow (only
    // when mapping fails); they still merge with blocks released beside them.
    uint64_t unlistedBlocks = 0;
    HeapStatistics counters;
};

// Attaches the process heap (counted atomically; never detached).
void attachHeap();
bool heapAttached();
// The heap behind the global operators; usable during static initialisation.
Heap& processHeap();
