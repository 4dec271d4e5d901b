// Heap: a two-level segregated-fit allocator over large anonymous mmap
// segments. The process heap serves the global operator new/delete once
// attachHeap() has run; tests and benchmarks may also make private instances.
//
// Sizes go up in steps of 8 bytes from 8. An allocation takes the
// lowest-addressed block that fits from its exact list, or else any block of
// the first non-empty list above it.
//
// A free list is a chain of links kept in its blocks' user areas, in no
// particular order, so that listing and unlisting a block cost a few stores;
// the exact list's chain is walked whole for its lowest fitting block. A
// chain that grows past chainLimit blocks moves into the list's index, an
// address-ordered tree beside the segments (FreeList), which finds that block
// in a few node visits however long the list is, and goes back to a chain
// once it has shrunk to chainReturn. 8-byte blocks have no room for links and
// always live in the index.
#pragma once

#include <array>
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
    // Bytes mapped for the free lists' indexes, beside the segments.
    uint64_t indexSize();
    // Chained free blocks visited by allocations' searches so far: the work
    // that the move of long chains into indexes keeps bounded.
    uint64_t searchSteps();

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
    // the list is (m - 8) * 64 + (t >> (m - 6)) + 1. Up to 4 KiB, where most
    // requests fall, a table made from the formula gives the same in one load
    // instead of a dozen instructions (on HeapBench, 20 fewer per pair).
    static int32_t listIndex(uint64_t searchSize) {
        return searchSize <= tabulatedSizes ? tabulatedLists[(searchSize + 3) / 4] : computedListIndex(searchSize);
    }
    static constexpr int32_t computedListIndex(uint64_t searchSize) {
        if (searchSize == 0)
            return 0;
        uint64_t t = searchSize - 1;
        int32_t top = std::bit_width(t | 256) - 1;
        int32_t index = ((top - 8) << 6) + int32_t(t >> (top - 6)) + 1;
        return searchSize >= (uint64_t(1) << 30) ? listCount - 1 : index;
    }

private:
    // Every list bound is a multiple of 4, so a size's list follows from the
    // size rounded up to one.
    static constexpr uint64_t tabulatedSizes = 4096;
    static const std::array<uint16_t, tabulatedSizes / 4 + 1> tabulatedLists;

    struct Segment {
        char* start;
        uint64_t length;
    };

    // What the heap counts as it goes; HeapStatistics derives the rest. The
    // counters every allocation and release update share one cache line.
    struct alignas(64) Counters {
        uint64_t allocCalls = 0;
        uint64_t freeCalls = 0;
        uint64_t allocBlocks = 0;
        uint64_t allocSize = 0;
        uint64_t peakAllocSize = 0;
        uint64_t peakBlockSize = 0;
        uint64_t maxAllocSize = 0;
        uint64_t slowBucket = 0;
        uint64_t totalSize = 0;
        uint64_t numSegments = 0;
        uint64_t reallocCalls = 0;
        uint64_t reallocSucc = 0;
    };

    // A free list's hot part. While `first` is set the list is a chain
    // through its blocks; while `length` carries indexedFlag its blocks are
    // in the list's FreeList instead. An empty list is neither. The flag
    // makes one comparison tell whether the chain takes another block.
    static constexpr uint32_t indexedFlag = uint32_t(1) << 31;
    struct ListHead {
        HeapBlock* first;
        uint32_t length;  // blocks in the list, plus indexedFlag while indexed
        bool indexed() const { return (length & indexedFlag) != 0; }
        uint32_t count() const { return length & ~indexedFlag; }
    };

    // Where a request goes: a listed free block, the block before it on its
    // chain (null for the first, or in an index), its size and list, and the
    // user area inside it.
    struct Fit {
        HeapBlock* block;
        HeapBlock* before;
        uint64_t blockSize;
        char* user;
        int32_t list;
    };
    struct Neighbours {
        HeapBlock* next;
        HeapBlock* previous;
    };
    struct ListCheck {
        Heap* heap;
        int32_t list;
    };

    template <auto way, class... Arguments>
    auto thenUnlock(Arguments... arguments);
    void* waitThenAllocate(size_t size, size_t alignment);
    void* allocateHeld(size_t size, size_t alignment);
    bool waitThenRelease(void* address);
    bool releaseHeld(void* address);
    void* allocateGenerally(size_t size, size_t alignment);
    void* allocateCounted(size_t size, size_t alignment);
    void* takeWhole(const Fit& fit);
    char* carveFound(HeapBlock* block, HeapBlock* before, uint64_t gap, int32_t list, uint64_t size);
    void releaseBlock(HeapBlock* block);
    void* reallocateLocked(void* address, size_t size);
    bool smallFit(uint64_t size, uint64_t searchSize, uint64_t gapMask, Fit& fit);
    bool findFit(uint64_t searchSize, uint64_t size, uint64_t alignment, Fit& fit);
    bool lowestFitIn(int32_t list, uint64_t size, uint64_t alignment, Fit& fit);
    bool anyFitIn(int32_t list, uint64_t size, uint64_t alignment, Fit& fit);
    bool lowestIndexedFit(int32_t list, uint64_t size, uint64_t alignment, Fit& fit);
    char* carve(const Fit& fit, uint64_t size);
    HeapBlock* liveBlockAt(void* address);
    static HeapBlock* liveBlockIn(const Segment* segment, void* address);
    HeapBlock* splitTail(HeapBlock* block, uint64_t size);
    static Neighbours freeNeighbours(HeapBlock* block);
    void coalesceAndList(HeapBlock* block);
    void mergeAndList(HeapBlock* block, HeapBlock* next, HeapBlock* previous);
    bool mapSegment(uint64_t size, uint64_t alignment);
    const Segment* findSegment(const void* address);
    static uint32_t granuleSlot(const void* address);
    void fillGranuleTable();
    int32_t firstNonEmptyList(int32_t from) const;
    void listBlock(HeapBlock* block, uint64_t size);
    bool chainHasRoom(int32_t list) const;
    void chain(HeapBlock* block, int32_t list);
    void unchain(HeapBlock* block, HeapBlock* before, int32_t list);
    HeapBlock* chainedBefore(HeapBlock* block, int32_t list);
    void unlistBlock(HeapBlock* block, int32_t list);
    void unlistFound(const Fit& fit);
    void listIndexed(int32_t list, HeapBlock* block, uint64_t size);
    void unlistIndexed(int32_t list, HeapBlock* block);
    bool chainToIndex(int32_t list);
    void indexToChain(int32_t list);
    void markListNonEmpty(int32_t list);
    void markListEmpty(int32_t list);
    void notePeaks(uint64_t blockSize);
    HeapStatistics statisticsLocked();
    bool verifyLocked();
    bool verifyLists(uint64_t& listed);
    static bool entryIsFreeBlock(void* context, FreeList::Entry entry);

    std::atomic<int32_t> lock{0};  // 1 while held (see HeapLock)
    uint32_t bitmapSummary = 0;  // bit w set when bitmap[w] is non-zero
    int32_t segmentCount = 0;
    Counters counters;
    uint64_t bitmap[listCount / 64] = {};
    ListHead heads[listCount] = {};
    Segment segments[maxSegments] = {};  // sorted by start address
    static constexpr int32_t granuleBits = 24;
    static constexpr uint32_t granuleSlots = 1024;
    uint8_t granuleSegments[granuleSlots] = {};  // see findSegment
    uint64_t chainSteps = 0;  // chained blocks visited by searches
    FreeList indexes[listCount];  // touched only by long lists
    NodePool indexNodes;  // the indexes' nodes
};

// Attaches the process heap (counted atomically; never detached).
void attachHeap();
bool heapAttached();
// The heap behind the global operators; usable during static initialisation.
Heap& processHeap();
