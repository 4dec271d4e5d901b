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
// Free blocks keep nothing in their user area (their lists live beside the
// segments), so the smallest block is the smallest request; a gap cut off in
// front of an aligned request becomes a block when it can hold one.
constexpr uint64_t minBlockSize = 8;
constexpr uint64_t minSplitBytes = headerBytes + minBlockSize;
constexpr uint64_t maxAlignment = 1 << 20;
constexpr uint64_t segmentMinimum = 0x1100000;
constexpr uint64_t segmentGranule = 64 * 1024;

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

// A block handed out keeps what is left behind it unless that is at least a
// quarter of the request and 48 bytes. Smaller leftovers mostly lingered as
// free blocks too small for anything, each a list entry to keep: on
// HeapBench, splitting off whatever could hold a block left about 2000 free
// blocks and took 166 ns a pair, this rule about 200 and 61 to 67 ns, while
// the blocks' peak bytes over those asked for went from 1.002 to 1.007.
// (Leftovers under the whole request: 63 ns, but 1.29.)
uint64_t smallestTail(uint64_t size) { return std::max<uint64_t>(48, size / 4); }

// Requests up to this size may take the plain way (see allocatePlain); the
// bound keeps its arithmetic far from overflow.
constexpr uint64_t plainLimit = uint64_t(1) << 40;

uint64_t roundedSize(uint64_t request) {
    return request < minBlockSize ? minBlockSize : (request + 7) & ~uint64_t(7);
}

// Requests this large are refused before any arithmetic can overflow.
bool oversized(uint64_t request) { return request > ~uint64_t(0) - maxAlignment; }

}  // namespace

// A block: two header words ahead of the user area. header: the user area's
// length in 8-byte words, top bit set while in use. previous: the physically
// preceding block, null for the first block of a segment.
struct HeapBlock {
    uint64_t header;
    HeapBlock* previous;

    char* user() { return reinterpret_cast<char*>(this) + headerBytes; }
    uint64_t size() const { return header << 3; }  // drops the in-use bit
    bool inUse() const { return (header & inUseBit) != 0; }
    bool isTerminator() const { return header == terminatorWord; }
    HeapBlock* following() { return reinterpret_cast<HeapBlock*>(user() + size()); }
    void setFree(uint64_t bytes) { header = bytes / 8; }
    uint64_t key() const { return uint64_t(reinterpret_cast<uintptr_t>(this)); }
};
static_assert(sizeof(HeapBlock) == headerBytes);

static HeapBlock* blockAt(uint64_t key) { return reinterpret_cast<HeapBlock*>(uintptr_t(key)); }

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

// The three list changes, in terms of list entries (a block's address and
// size), so that they can run before the block's own header is in the cache.
// The free counters follow the blocks, listed or not.
[[gnu::always_inline]] inline void Heap::addToList(int32_t list, uint64_t key, uint64_t size) {
    counters.freeBlocks++;
    counters.freeSize += size;
    if (!lists[list].insert(indexNodes, key, size)) {
        unlistedBlocks++;
        return;
    }
    bitmap[list >> 6] |= uint64_t(1) << (list & 63);
    bitmapSummary |= 1u << (list >> 6);
}

[[gnu::always_inline]] inline void Heap::removeFromList(int32_t list, uint64_t key, uint64_t size) {
    counters.freeBlocks--;
    counters.freeSize -= size;
    if (!lists[list].erase(indexNodes, key))
        unlistedBlocks--;
    else if (lists[list].empty())
        markListEmpty(list);
}

// The free block listed under wasKey with wasSize is now the one at key,
// which overlaps where it was, so no other listed block lies between the two
// and the entry moves in place when the list stays the same.
[[gnu::always_inline]] inline void Heap::moveInList(int32_t wasList, uint64_t wasKey, uint64_t wasSize, uint64_t key, uint64_t size) {
    int32_t list = listIndex(size);
    if (list == wasList && lists[list].replace(wasKey, key, size)) {
        counters.freeSize += size - wasSize;
        return;
    }
    removeFromList(wasList, wasKey, wasSize);
    addToList(list, key, size);
}

inline void Heap::markListEmpty(int32_t list) {
    bitmap[list >> 6] &= ~(uint64_t(1) << (list & 63));
    if (!bitmap[list >> 6])
        bitmapSummary &= ~(1u << (list >> 6));
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

// Where the user area of an aligned request would start inside a free block
// of blockSize bytes, or null when it does not fit. A gap in front too small
// to be a block of its own goes to the block in front; the first block of a
// segment has none, so there the user area moves on by whole alignments. (It
// starts 16-aligned, so operator new never reads its header here.)
static inline char* placeIn(HeapBlock* block, uint64_t blockSize, uint64_t size, uint64_t alignment) {
    if (alignment <= 8)
        return size <= blockSize ? block->user() : nullptr;
    uintptr_t start = uintptr_t(block->user());
    uintptr_t user = (start + alignment - 1) & ~uintptr_t(alignment - 1);
    while (user != start && user - start < minSplitBytes && !block->previous)
        user += alignment;
    if (user - start + size > blockSize)
        return nullptr;
    return reinterpret_cast<char*>(user);
}

// The lowest-addressed block of the list that the request fits in. The list
// finds the lowest block large enough; only a block too small for the
// alignment gap it would need sends the search on past it.
[[gnu::always_inline]] inline bool Heap::lowestFitIn(int32_t list, uint64_t size, uint64_t alignment, Fit& fit) {
    for (uint64_t from = 0;;) {
        FreeList::Entry entry = lists[list].lowest(size, from);
        if (!entry.address)
            return false;
        fit.block = blockAt(entry.address);
        fit.blockSize = entry.size;
        fit.list = list;
        if ((fit.user = placeIn(fit.block, entry.size, size, alignment)))
            return true;
        from = entry.address + 1;
    }
}

// The exact list may hold blocks smaller than the search size; in the lists
// above it every block fits (bar a segment's first block, which may need a
// wider gap in front), and the lowest-addressed one is taken.
[[gnu::always_inline]] inline bool Heap::findFit(uint64_t searchSize, uint64_t size, uint64_t alignment, Fit& fit) {
    int32_t exact = listIndex(searchSize);
    int32_t list = lists[exact].empty() ? firstNonEmptyList(exact + 1) : exact;
    for (; list >= 0; list = firstNonEmptyList(list + 1)) {
        if (lowestFitIn(list, size, alignment, fit))
            return true;
        counters.slowBucket += list == exact;
    }
    return false;
}

// Cuts a block down to size when the rest can stand as a free block, and
// returns that rest (not yet listed) or null.
inline HeapBlock* Heap::splitTail(HeapBlock* block, uint64_t size) {
    uint64_t blockSize = block->size();
    if (blockSize < size + headerBytes + smallestTail(size))
        return nullptr;
    block->header = (block->header & inUseBit) | (size / 8);
    if (block->inUse())
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
// it with free neighbours and lists the result. The merged block covers the
// free neighbours' places, so an entry of theirs moves rather than goes.
[[gnu::always_inline]] inline void Heap::coalesceAndList(HeapBlock* block) {
    // Both neighbours' headers are loaded before either is looked at, so that
    // their cache misses overlap; a segment's first block borrows a stand-in.
    static const HeapBlock noneInFront = {inUseBit, nullptr};
    HeapBlock* next = block->following();
    HeapBlock* previous = block->previous;
    bool nextFree = !next->inUse();
    bool previousFree = !(previous ? previous : &noneInFront)->inUse();
    if (!nextFree && !previousFree) {
        addToList(listIndex(block->size()), block->key(), block->size());
        return;
    }
    HeapBlock* was = previousFree ? previous : next;
    uint64_t wasKey = was->key();
    uint64_t wasSize = was->size();
    if (nextFree) {
        if (previousFree)
            removeFromList(listIndex(next->size()), next->key(), next->size());
        block->header += 2 + next->header;
    }
    if (previousFree) {
        previous->header += 2 + block->header;
        block = previous;
    }
    HeapBlock* following = block->following();
    if (!following->isTerminator())
        following->previous = block;
    moveInList(listIndex(wasSize), wasKey, wasSize, block->key(), block->size());
}

// Hands out a listed free block: the request's place in it, with what is
// left in front and behind as free blocks. Those need no merging (the blocks
// beside a free block are in use), and one of them takes over the block's
// list entry. The list work comes first, from the search's figures, while
// the block's header and the one behind it are on their way into the cache.
[[gnu::always_inline]] inline char* Heap::carve(const Fit& fit, uint64_t size) {
    HeapBlock* block = fit.block;
    uint64_t key = block->key();
    char* user = fit.user;
    auto* following = reinterpret_cast<HeapBlock*>(block->user() + fit.blockSize);
    // front gap | header, request | tail: gap is 0, too small for a block
    // (it joins the block in front) or a free block of its own.
    uint64_t gap = uint64_t(user - block->user());
    uint64_t placed = fit.blockSize - gap;
    bool frontIsFree = gap >= minSplitBytes;
    bool split = placed >= size + headerBytes + smallestTail(size);
    __builtin_prefetch(block, 1);
    if (gap || split)  // only then is the block behind told of its new neighbour
        __builtin_prefetch(following, 1);
    uint64_t tailKey = key + gap + headerBytes + size;
    uint64_t tailSize = placed - size - headerBytes;
    if (frontIsFree) {
        moveInList(fit.list, key, fit.blockSize, key, gap - headerBytes);
        if (split)
            addToList(listIndex(tailSize), tailKey, tailSize);
    } else if (split) {
        moveInList(fit.list, key, fit.blockSize, tailKey, tailSize);
    } else {
        removeFromList(fit.list, key, fit.blockSize);
    }
    auto* taken = reinterpret_cast<HeapBlock*>(user - headerBytes);
    if (gap) {
        HeapBlock* front = block;
        if (frontIsFree) {
            block->setFree(gap - headerBytes);
        } else {
            front = block->previous;  // in use
            front->header += gap / 8;
            counters.allocSize += gap;
        }
        taken->previous = front;
    }
    HeapBlock* behind = taken;
    uint64_t takenSize = placed;
    if (split) {
        auto* tail = blockAt(tailKey);
        tail->setFree(tailSize);
        tail->previous = taken;
        behind = tail;
        takenSize = size;
    }
    if (behind != block && !following->isTerminator())
        following->previous = behind;
    taken->header = inUseBit | (takenSize / 8);
    counters.allocBlocks++;
    counters.allocSize += takenSize;
    notePeaks(taken);
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
    uint64_t unlistedBefore = unlistedBlocks;
    addToList(listIndex(first->size()), first->key(), first->size());
    return unlistedBlocks == unlistedBefore;  // unlisted, it would serve nobody
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

// The common request (operator new's alignments) met by a block used whole:
// no gap in front, nothing worth splitting off behind. Null when the request
// needs the general way, which then repeats the search.
[[gnu::always_inline]] inline void* Heap::allocatePlain(uint64_t size, uint64_t searchSize, uint64_t alignment) {
    int32_t exact = listIndex(searchSize);
    int32_t list = lists[exact].empty() ? firstNonEmptyList(exact + 1) : exact;
    if (list < 0)
        return nullptr;
    FreeList::Entry entry = lists[list].lowest(size, 0);
    bool aligned = alignment <= 8 || (entry.address & 15) == 0;  // user areas are 16 bytes in
    if (!entry.address || !aligned || entry.size >= size + headerBytes + smallestTail(size))
        return nullptr;
    HeapBlock* block = blockAt(entry.address);
    __builtin_prefetch(block, 1);
    removeFromList(list, entry.address, entry.size);
    block->header = inUseBit | (entry.size / 8);
    counters.allocBlocks++;
    counters.allocSize += entry.size;
    notePeaks(block);
    return block->user();
}

[[gnu::always_inline]] inline void* Heap::allocateLocked(size_t request, size_t alignment) {
    counters.allocCalls++;
    if ((alignment <= 8 || alignment == 16) && request <= plainLimit) {
        uint64_t size = roundedSize(request);
        if (void* memory = allocatePlain(size, size + (alignment <= 8 ? 0 : 15), alignment))
            return memory;
    }
    return allocateCarved(request, alignment);
}

// Out of line, so that the plain way above stays small.
[[gnu::noinline]] void* Heap::allocateCarved(size_t request, size_t alignment) {
    alignment = std::max<size_t>(alignment, 8);
    if (alignment > maxAlignment || (alignment & (alignment - 1)) || oversized(request))
        return nullptr;
    uint64_t size = roundedSize(request);
    uint64_t searchSize = size + (alignment == 8 ? 0 : alignment - 1);
    for (;;) {
        Fit fit;
        if (findFit(searchSize, size, alignment, fit))
            return carve(fit, size);
        if (!mapSegment(size, alignment))
            return nullptr;
    }
}

void* Heap::allocate(size_t size, size_t alignment) {
    HeapLock hold(lock);
    return allocateLocked(size, alignment);
}

[[gnu::always_inline]] inline void Heap::releaseBlock(HeapBlock* block) {
    counters.freeCalls++;
    counters.allocBlocks--;
    counters.allocSize -= block->size();
    block->header &= ~inUseBit;
    coalesceAndList(block);
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
        uint64_t nextKey = next->key();
        uint64_t nextSize = next->size();
        block->header += 2 + next->header;
        counters.allocSize += headerBytes + nextSize;
        HeapBlock* following = block->following();
        if (!following->isTerminator())
            following->previous = block;
        if (HeapBlock* tail = splitTail(block, size))
            moveInList(listIndex(nextSize), nextKey, nextSize, tail->key(), tail->size());  // where next was
        else
            removeFromList(listIndex(nextSize), nextKey, nextSize);
    } else if (HeapBlock* tail = splitTail(block, size)) {
        coalesceAndList(tail);  // shrinking: the block behind may be free
    }
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
    for (const FreeList& list : lists) {
        result.maxFreeSize = std::max(result.maxFreeSize, list.largest());
        result.largestFreeChain = std::max(result.largestFreeChain, list.length());
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

// Each list's bit matches its emptiness, and each entry is a free block of
// the list's size class whose neighbours know it.
bool Heap::verifyLists(uint64_t& listed) {
    struct Context {
        Heap* heap;
        int32_t list;
    } context{this, 0};
    auto entryIsFreeBlock = [](void* opaque, FreeList::Entry entry) {
        auto* c = static_cast<Context*>(opaque);
        HeapBlock* block = blockAt(entry.address);
        const Segment* segment = c->heap->findSegment(block);
        if (!segment || (entry.address & 7) || entry.address + minSplitBytes + 8 > uintptr_t(segment->start) + segment->length)
            return false;
        HeapBlock* following = block->following();
        bool linked = following->isTerminator() ? reinterpret_cast<char*>(following) + 8 == segment->start + segment->length
                                                : following->previous == block;
        return !block->inUse() && block->size() == entry.size && listIndex(entry.size) == c->list && linked;
    };
    for (; context.list < listCount; context.list++) {
        int32_t list = context.list;
        bool bit = (bitmap[list >> 6] >> (list & 63)) & 1;
        bool wordBit = (bitmapSummary >> (list >> 6)) & 1;
        if (bit == lists[list].empty() || wordBit != (bitmap[list >> 6] != 0))
            return false;
        if (!lists[list].verify(entryIsFreeBlock, &context))
            return false;
        listed += lists[list].length();
    }
    return true;
}

uint64_t Heap::indexSize() {
    HeapLock hold(lock);
    return indexNodes.mappedBytes();
}

void Heap::forEachBlock(void (*visit)(void*, const BlockView&), void* context) {
    HeapLock hold(lock);
    for (int32_t i = 0; i < segmentCount; i++) {
        auto* block = reinterpret_cast<HeapBlock*>(segments[i].start);
        for (; !block->isTerminator(); block = block->following())
            visit(context, {block->user(), block->size(), block->inUse()});
    }
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
            if (block->previous != previous || (uintptr_t(block) & 7) ||
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
    if (!verifyLists(listed))
        return false;
    return listed + unlistedBlocks == walked.freeBlocks && walked.freeBlocks == counters.freeBlocks &&
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
