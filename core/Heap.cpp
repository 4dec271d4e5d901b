// Heap: two-level segregated fit over anonymous mmap segments, and the
// process heap the global operators use once attachHeap() has run.
#include "core/Heap.h"

#include <sys/mman.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint64_t inUseBit = 1ull << 63;
constexpr uint64_t terminatorWord = ~0ull;
constexpr uint64_t headerBytes = 16;
// A free block keeps its two list links in its user area, so no block is
// smaller than that, and a split only happens when the piece cut off can
// stand as a block of its own.
constexpr uint64_t minBlockSize = 16;
constexpr uint64_t minSplitBytes = headerBytes + minBlockSize;
constexpr uint64_t maxAlignment = 1 << 20;
constexpr uint64_t segmentMinimum = 0x1100000;
constexpr uint64_t segmentGranule = 64 * 1024;
// How far the exact list is walked when its head is too small. Every block
// visited is a likely cache miss: walking whole lists took HeapBench from
// about 70 to 185 ns per pair.
constexpr int32_t exactWalkLimit = 8;

// The heap lock: mutual exclusion on one atomic word, since the heap must not
// allocate to lock. Taking it costs one atomic exchange and giving it back a
// plain release store: HeapBench showed the lock's atomic operations to be
// half the cost of a release, so there is no second one. Contention is rare
// (the playback thread does not allocate), so a waiter spins briefly and then
// yields the processor.
class HeapLock {
public:
    explicit HeapLock(std::atomic<int32_t>& word) : held(word) {
        while (held.exchange(1, std::memory_order_acquire) != 0)
            waitUntilFree();
    }
    HeapLock(const HeapLock&) = delete;
    ~HeapLock() { held.store(0, std::memory_order_release); }

private:
    void waitUntilFree() {
        for (int spins = 0; held.load(std::memory_order_relaxed) != 0; ++spins) {
            if (spins >= 64)
                sched_yield();
#if defined(__x86_64__) || defined(__i386__)
            else
                __builtin_ia32_pause();
#endif
        }
    }

    std::atomic<int32_t>& held;
};

uint64_t roundedSize(uint64_t request) {
    return request < minBlockSize ? minBlockSize : (request + 7) & ~uint64_t(7);
}

// Requests this large are refused before any arithmetic can overflow.
bool oversized(uint64_t request) { return request > ~uint64_t(0) - maxAlignment; }

}  // namespace

// A block: two header words ahead of the user area. header: the user area's
// length in 8-byte words, top bit set while in use. previous: the physically
// preceding block, null for the first block of a segment. Free blocks keep
// their list links where the user data would be.
struct HeapBlock {
    uint64_t header;
    HeapBlock* previous;
    HeapBlock* next;
    HeapBlock* prevFree;

    char* user() { return reinterpret_cast<char*>(this) + headerBytes; }
    uint64_t size() const { return header << 3; }  // drops the in-use bit
    bool inUse() const { return (header & inUseBit) != 0; }
    bool isTerminator() const { return header == terminatorWord; }
    HeapBlock* following() { return reinterpret_cast<HeapBlock*>(user() + size()); }
    void setFree(uint64_t bytes) { header = bytes / 8; }
};
static_assert(offsetof(HeapBlock, next) == headerBytes, "list links live in the user area");

Heap::~Heap() {
    for (int32_t i = 0; i < segmentCount; i++)
        munmap(segments[i].start, segments[i].length);
}

inline int32_t Heap::firstNonEmptyList(int32_t from) const {
    if (from >= listCount)
        return -1;
    int32_t word = from >> 6;
    uint64_t bits = bitmap[word] & (~uint64_t(0) << (from & 63));
    if (bits)
        return (word << 6) + std::countr_zero(bits);
    uint32_t words = bitmapSummary & (~0u << (word + 1));
    if (!words)
        return -1;
    word = std::countr_zero(words);
    return (word << 6) + std::countr_zero(bitmap[word]);
}

inline void Heap::link(HeapBlock* block) {
    uint64_t size = block->size();
    int32_t list = listIndex(size);
    counters.freeBlocks++;
    counters.freeSize += size;
    HeapBlock* head = heads[list];
    block->prevFree = nullptr;
    block->next = head;
    heads[list] = block;
    if (head) {
        head->prevFree = block;
        return;
    }
    bitmap[list >> 6] |= uint64_t(1) << (list & 63);
    bitmapSummary |= 1u << (list >> 6);
}

inline void Heap::unlink(HeapBlock* block) {
    int32_t list = listIndex(block->size());
    counters.freeBlocks--;
    counters.freeSize -= block->size();
    if (block->prevFree)
        block->prevFree->next = block->next;
    else
        heads[list] = block->next;
    if (block->next)
        block->next->prevFree = block->prevFree;
    if (!heads[list])
        clearListBit(list);
}

inline void Heap::clearListBit(int32_t list) {
    bitmap[list >> 6] &= ~(uint64_t(1) << (list & 63));
    if (!bitmap[list >> 6])
        bitmapSummary &= ~(1u << (list >> 6));
}

inline void Heap::markInUse(HeapBlock* block) {
    block->header |= inUseBit;
    counters.allocBlocks++;
    counters.allocSize += block->size();
}

void Heap::growBlock(HeapBlock* block, uint64_t bytes) {
    if (block->inUse()) {
        block->header += bytes / 8;
        counters.allocSize += bytes;
        return;
    }
    unlink(block);
    block->header += bytes / 8;
    link(block);
}

inline void Heap::notePeaks(const HeapBlock* block) {
    uint64_t withHeaders = counters.allocSize + headerBytes * counters.allocBlocks;
    if (counters.allocSize > counters.peakAllocSize)
        counters.peakAllocSize = counters.allocSize;
    if (withHeaders > counters.peakBlockSize)
        counters.peakBlockSize = withHeaders;
    if (block->size() > counters.maxAllocSize)
        counters.maxAllocSize = block->size();
}

// Where the user area of an aligned request would start inside a free block,
// or null when it does not fit. A gap in front too small to be a block of its
// own goes to the block in front; the first block of a segment has none, so
// there the user area moves on by whole alignments instead.
static inline char* placeIn(HeapBlock* block, uint64_t size, uint64_t alignment) {
    if (alignment <= 16)  // every user area is 16-aligned (see splitTail)
        return size <= block->size() ? block->user() : nullptr;
    uintptr_t start = uintptr_t(block->user());
    uintptr_t user = (start + alignment - 1) & ~uintptr_t(alignment - 1);
    while (user != start && user - start < minSplitBytes && !block->previous)
        user += alignment;
    if (user - start + size > block->size())
        return nullptr;
    return reinterpret_cast<char*>(user);
}

inline HeapBlock* Heap::firstFitIn(int32_t list, uint64_t size, uint64_t alignment, char*& user) {
    for (HeapBlock* block = heads[list]; block; block = block->next)
        if ((user = placeIn(block, size, alignment)))
            return block;
    return nullptr;
}

// The exact list: its head, the most recently released block, is taken when
// it fits (still warm in the cache, and below 512 bytes a list holds a single
// size, so it always fits there). Otherwise the next few blocks are walked and
// the lowest-addressed one that fits is chosen.
HeapBlock* Heap::exactFit(int32_t list, uint64_t size, uint64_t alignment, char*& user) {
    HeapBlock* best = nullptr;
    int32_t walked = 0;
    for (HeapBlock* block = heads[list]; block && walked < exactWalkLimit; block = block->next, walked++) {
        char* place = placeIn(block, size, alignment);
        if (place && (!best || block < best)) {
            best = block;
            user = place;
        }
    }
    if (!best)
        counters.slowBucket++;
    return best;
}

// Blocks in the exact list may be smaller than the search size; every block
// in a higher list fits (bar the rare first block of a segment, which may need
// a wider gap in front).
inline HeapBlock* Heap::findFit(uint64_t searchSize, uint64_t size, uint64_t alignment, char*& user) {
    int32_t exact = listIndex(searchSize);
    int32_t list = firstNonEmptyList(exact);
    if (list == exact) {
        HeapBlock* head = heads[list];
        if ((user = placeIn(head, size, alignment)))
            return head;
        if (HeapBlock* block = exactFit(list, size, alignment, user))
            return block;
        list = firstNonEmptyList(list + 1);
    }
    for (; list >= 0; list = firstNonEmptyList(list + 1))
        if (HeapBlock* block = firstFitIn(list, size, alignment, user))
            return block;
    return nullptr;
}

// operator new's requests: alignment at most 16, which every user area has,
// so a fit is a matter of size alone and the exact list's head nearly always
// serves.
inline void* Heap::allocateSmall(uint64_t size, uint64_t searchSize) {
    int32_t list = listIndex(searchSize);
    HeapBlock* block = heads[list];
    if (!block || block->size() < size) {
        char* user = nullptr;
        block = findFit(searchSize, size, 16, user);
        return block ? carve(block, user, size) : nullptr;
    }
    HeapBlock* next = block->next;
    heads[list] = next;
    if (next)
        next->prevFree = nullptr;
    else
        clearListBit(list);
    counters.freeBlocks--;
    counters.freeSize -= block->size();
    markInUse(block);
    if (HeapBlock* tail = splitTail(block, size))
        link(tail);
    notePeaks(block);
    return block->user();
}

// Moves the start of an unlinked free block up to just before user. The gap
// becomes a free block when it can, else it joins the block in front.
HeapBlock* Heap::moveStart(HeapBlock* block, char* user) {
    uint64_t gap = uint64_t(user - block->user());
    uint64_t movedSize = block->size() - gap;
    HeapBlock* following = block->following();
    HeapBlock* front = block->previous;
    if (gap >= minSplitBytes) {
        block->setFree(gap - headerBytes);
        front = block;
        link(front);
    } else {
        growBlock(front, gap);
    }
    auto* moved = reinterpret_cast<HeapBlock*>(user - headerBytes);
    moved->header = movedSize / 8;
    moved->previous = front;
    if (!following->isTerminator())
        following->previous = moved;
    return moved;
}

// Cuts a block in use down to size when the rest can stand as a free block,
// and returns that rest (not yet listed) or null. Cuts fall on 16-byte
// boundaries: segments start page-aligned, so every user area stays
// 16-aligned and operator new never has to shift a block forward.
inline HeapBlock* Heap::splitTail(HeapBlock* block, uint64_t size) {
    size = (size + 15) & ~uint64_t(15);
    uint64_t blockSize = block->size();
    if (blockSize < size + minSplitBytes)
        return nullptr;
    block->header = inUseBit | (size / 8);
    counters.allocSize -= blockSize - size;
    auto* tail = reinterpret_cast<HeapBlock*>(block->user() + size);
    tail->setFree(blockSize - size - headerBytes);
    tail->previous = block;
    HeapBlock* following = tail->following();
    if (!following->isTerminator())
        following->previous = tail;
    return tail;
}

// Takes a free, unlisted block whose neighbours already point at it: merges
// it with free neighbours and lists it.
inline void Heap::coalesceAndLink(HeapBlock* block) {
    // Both neighbours' headers are loaded before either is looked at, so that
    // their cache misses overlap; a segment's first block borrows a stand-in.
    static const HeapBlock noneInFront = {inUseBit, nullptr, nullptr, nullptr};
    HeapBlock* next = block->following();
    HeapBlock* previous = block->previous;
    bool nextFree = !next->inUse();
    bool previousFree = !(previous ? previous : &noneInFront)->inUse();
    if (nextFree) {
        unlink(next);
        block->header += 2 + next->header;
    }
    if (previousFree) {
        unlink(previous);
        previous->header += 2 + block->header;
        block = previous;
    }
    if (nextFree || previousFree) {
        HeapBlock* following = block->following();
        if (!following->isTerminator())
            following->previous = block;
    }
    link(block);
}

// Hands out a listed free block. What is cut off its end needs no merging:
// the block behind a free block is always in use.
inline char* Heap::carve(HeapBlock* block, char* user, uint64_t size) {
    if (block->size() >= size + 2 * minSplitBytes)  // a split will update the block behind
        __builtin_prefetch(block->following());
    unlink(block);
    if (user != block->user())
        block = moveStart(block, user);
    markInUse(block);
    if (HeapBlock* tail = splitTail(block, size))
        link(tail);
    notePeaks(block);
    return user;
}

bool Heap::mapSegment(uint64_t size, uint64_t alignment) {
    if (segmentCount == maxSegments || size > (uint64_t(1) << 56))
        return false;
    uint64_t granule = std::max<uint64_t>(uint64_t(sysconf(_SC_PAGESIZE)), segmentGranule);
    uint64_t wanted = std::max<uint64_t>(segmentMinimum, size + alignment + 40);
    uint64_t length = (wanted + granule - 1) / granule * granule;
    int flags = MAP_PRIVATE | MAP_ANONYMOUS;
    void* memory = mmap(nullptr, length, PROT_READ | PROT_WRITE | PROT_EXEC, flags, -1, 0);
    if (memory == MAP_FAILED)  // systems that refuse writable code pages
        memory = mmap(nullptr, length, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (memory == MAP_FAILED)
        return false;
    char* start = static_cast<char*>(memory);
    Segment* slot = std::upper_bound(segments, segments + segmentCount, start,
                                     [](char* a, const Segment& s) { return a < s.start; });
    std::move_backward(slot, segments + segmentCount, segments + segmentCount + 1);
    *slot = Segment{start, length};
    segmentCount++;
    counters.numSegments++;
    counters.totalSize += length;
    auto* first = reinterpret_cast<HeapBlock*>(start);
    first->setFree(length - 24);
    first->previous = nullptr;
    *reinterpret_cast<uint64_t*>(start + length - 8) = terminatorWord;
    link(first);
    return true;
}

// Releases tend to come back to the segment of the one before; otherwise a
// branch-free binary search, since they hit the segments in random order.
inline const Heap::Segment* Heap::findSegment(const void* address) {
    const Segment* last = segments + lastSegment;
    if (uintptr_t(address) - uintptr_t(last->start) < last->length)
        return last;
    if (segmentCount == 0)
        return nullptr;
    const Segment* base = segments;
    for (int32_t count = segmentCount; count > 1; count -= count / 2)
        base = base[count / 2].start <= address ? base + count / 2 : base;
    if (uintptr_t(address) - uintptr_t(base->start) >= base->length)
        return nullptr;
    lastSegment = int32_t(base - segments);
    return base;
}

// The block whose user area starts at address, when it is one in use.
HeapBlock* Heap::liveBlockAt(void* address) {
    const Segment* segment = findSegment(address);
    return segment ? liveBlockIn(segment, address) : nullptr;
}

inline HeapBlock* Heap::liveBlockIn(const Segment* segment, void* address) {
    if ((uintptr_t(address) & 7) || static_cast<char*>(address) < segment->start + headerBytes)
        return nullptr;
    auto* block = reinterpret_cast<HeapBlock*>(static_cast<char*>(address) - headerBytes);
    return block->inUse() && !block->isTerminator() ? block : nullptr;
}

void* Heap::allocateLocked(size_t request, size_t alignment) {
    counters.allocCalls++;
    if ((alignment <= 8 || alignment == 16) && request < (uint64_t(1) << 40)) {
        uint64_t size = roundedSize(request);
        if (void* memory = allocateSmall(size, alignment <= 8 ? size : size + 15))
            return memory;
    }
    alignment = std::max<size_t>(alignment, 8);
    if (alignment > maxAlignment || (alignment & (alignment - 1)) || oversized(request))
        return nullptr;
    uint64_t size = roundedSize(request);
    uint64_t searchSize = size + (alignment == 8 ? 0 : alignment - 1);
    for (;;) {
        char* user = nullptr;
        if (HeapBlock* block = findFit(searchSize, size, alignment, user))
            return carve(block, user, size);
        if (!mapSegment(size, alignment))
            return nullptr;
    }
}

void* Heap::allocate(size_t size, size_t alignment) {
    HeapLock hold(lock);
    return allocateLocked(size, alignment);
}

inline void Heap::releaseBlock(HeapBlock* block) {
    counters.freeCalls++;
    counters.allocBlocks--;
    counters.allocSize -= block->size();
    block->header &= ~inUseBit;
    coalesceAndLink(block);
}

bool Heap::release(void* address) {
    HeapLock hold(lock);
    const Segment* segment = findSegment(address);
    if (!segment)
        return false;
    if (HeapBlock* block = liveBlockIn(segment, address))  // a stray or repeated release is ignored
        releaseBlock(block);
    return true;
}

// In place: shrinking always; growing when the next block is free and large
// enough. Otherwise the content moves.
void* Heap::reallocateLocked(void* address, size_t request) {
    counters.reallocCalls++;
    size_t alignment = request < 16 ? 8 : 16;
    if (!address)
        return allocateLocked(request, alignment);
    HeapBlock* block = liveBlockAt(address);
    if (!block || oversized(request))
        return nullptr;
    uint64_t size = roundedSize(request);
    uint64_t oldSize = block->size();
    if (size > oldSize) {
        HeapBlock* next = block->following();
        if (next->inUse() || oldSize + headerBytes + next->size() < size) {
            void* moved = allocateLocked(request, alignment);
            if (moved) {
                std::memcpy(moved, address, oldSize);
                releaseBlock(block);
            }
            return moved;
        }
        unlink(next);
        growBlock(block, headerBytes + next->size());
        HeapBlock* following = block->following();
        if (!following->isTerminator())
            following->previous = block;
    }
    if (HeapBlock* tail = splitTail(block, size))
        coalesceAndLink(tail);  // shrinking: the block behind may be free
    notePeaks(block);
    counters.reallocSucc++;
    return address;
}

void* Heap::reallocate(void* address, size_t size) {
    HeapLock hold(lock);
    return reallocateLocked(address, size);
}

bool Heap::owns(const void* address) {
    HeapLock hold(lock);
    return findSegment(address) != nullptr;
}

HeapStatistics Heap::statistics() {
    HeapLock hold(lock);
    HeapStatistics result = counters;
    result.bookKeeping = headerBytes * (counters.allocBlocks + counters.freeBlocks) + 8 * counters.numSegments;
    for (int32_t list = 0; list < listCount; list++) {
        uint64_t chain = 0;
        for (HeapBlock* block = heads[list]; block; block = block->next, chain++)
            result.maxFreeSize = std::max(result.maxFreeSize, block->size());
        result.largestFreeChain = std::max(result.largestFreeChain, chain);
    }
    return result;
}

namespace {
struct StatisticField {
    const char* name;
    uint64_t HeapStatistics::*field;
};
const StatisticField statisticFields[] = {
    {"allocBlocks", &HeapStatistics::allocBlocks},   {"allocSize", &HeapStatistics::allocSize},
    {"peakAllocSize", &HeapStatistics::peakAllocSize}, {"peakBlockSize", &HeapStatistics::peakBlockSize},
    {"freeBlocks", &HeapStatistics::freeBlocks},     {"freeSize", &HeapStatistics::freeSize},
    {"totalSize", &HeapStatistics::totalSize},       {"bookKeeping", &HeapStatistics::bookKeeping},
    {"maxAllocSize", &HeapStatistics::maxAllocSize}, {"maxFreeSize", &HeapStatistics::maxFreeSize},
    {"numSegments", &HeapStatistics::numSegments},   {"largestFreeChain", &HeapStatistics::largestFreeChain},
    {"allocCalls", &HeapStatistics::allocCalls},     {"reallocCalls", &HeapStatistics::reallocCalls},
    {"freeCalls", &HeapStatistics::freeCalls},       {"reallocSucc", &HeapStatistics::reallocSucc},
    {"slowBucket", &HeapStatistics::slowBucket},
};

// "allocBlocks .... ": the name, a space, dots up to 16 characters, a space.
void printLabel(const char* name) {
    int32_t dots = 16 - int32_t(std::strlen(name)) - 1;
    std::fputs(name, stdout);
    std::fputc(' ', stdout);
    for (int32_t i = 0; i < dots; i++)
        std::fputc('.', stdout);
    if (dots >= 0)
        std::fputc(' ', stdout);
}
}  // namespace

void Heap::printStatistics() {
    HeapStatistics values = statistics();
    for (const StatisticField& field : statisticFields) {
        printLabel(field.name);
        std::printf("%llu\n", static_cast<unsigned long long>(values.*field.field));
    }
    HeapLock hold(lock);
    for (int32_t i = 0; i < segmentCount; i++)
        std::printf("seg %p ... %llu\n", static_cast<void*>(segments[i].start),
                    static_cast<unsigned long long>(segments[i].length));
}

void Heap::dumpBlocks() {
    HeapLock hold(lock);
    for (int32_t i = 0; i < segmentCount; i++) {
        std::printf("heap segment %p ... %llu\n", static_cast<void*>(segments[i].start),
                    static_cast<unsigned long long>(segments[i].length));
        auto* block = reinterpret_cast<HeapBlock*>(segments[i].start);
        for (; !block->isTerminator(); block = block->following())
            std::printf("block used:%s ptr:%p size:%llu\n", block->inUse() ? "yes" : "no ",
                        static_cast<void*>(block->user()), static_cast<unsigned long long>(block->size()));
    }
}

bool Heap::verify() {
    HeapLock hold(lock);
    return verifyLocked();
}

bool Heap::verifyLocked() {
    HeapStatistics walked;
    for (int32_t i = 0; i < segmentCount; i++) {
        if (i > 0 && segments[i - 1].start >= segments[i].start)
            return false;
        char* end = segments[i].start + segments[i].length - 8;
        HeapBlock* previous = nullptr;
        auto* block = reinterpret_cast<HeapBlock*>(segments[i].start);
        for (; reinterpret_cast<char*>(block) < end; previous = block, block = block->following()) {
            if (block->previous != previous || (uintptr_t(block) & 15) ||
                block->size() > uint64_t(end - block->user()))
                return false;
            if (!block->inUse() && previous && !previous->inUse())
                return false;  // two free neighbours should have merged
            (block->inUse() ? walked.allocBlocks : walked.freeBlocks)++;
            (block->inUse() ? walked.allocSize : walked.freeSize) += block->size();
        }
        if (reinterpret_cast<char*>(block) != end || !block->isTerminator())
            return false;
        walked.totalSize += segments[i].length;
    }
    uint64_t listed = 0;
    for (int32_t list = 0; list < listCount; list++) {
        bool bit = (bitmap[list >> 6] >> (list & 63)) & 1;
        bool wordBit = (bitmapSummary >> (list >> 6)) & 1;
        if (bit != (heads[list] != nullptr) || wordBit != (bitmap[list >> 6] != 0))
            return false;
        const HeapBlock* prevFree = nullptr;
        for (HeapBlock* block = heads[list]; block; prevFree = block, block = block->next, listed++)
            if (!findSegment(block) || block->inUse() || block->prevFree != prevFree ||
                listIndex(block->size()) != list)
                return false;
    }
    return listed == walked.freeBlocks && walked.freeBlocks == counters.freeBlocks &&
           walked.freeSize == counters.freeSize && walked.allocBlocks == counters.allocBlocks &&
           walked.allocSize == counters.allocSize && walked.totalSize == counters.totalSize &&
           uint64_t(segmentCount) == counters.numSegments;
}

namespace {
// Never destroyed: memory handed out may be released after static destructors.
union ProcessHeapStorage {
    constexpr ProcessHeapStorage() : heap() {}
    ~ProcessHeapStorage() {}
    Heap heap;
};
constinit ProcessHeapStorage processHeapStorage;
std::atomic<int32_t> attachCount{0};
}  // namespace

Heap& processHeap() { return processHeapStorage.heap; }
void attachHeap() { attachCount.fetch_add(1); }
bool heapAttached() { return attachCount.load(std::memory_order_acquire) != 0; }
