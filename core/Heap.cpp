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
// The smallest block is the smallest request; a gap cut off in front of an
// aligned request becomes a block when it can hold one.
constexpr uint64_t minBlockSize = 8;
constexpr uint64_t minSplitBytes = headerBytes + minBlockSize;
constexpr uint64_t maxAlignment = 1 << 20;
constexpr uint64_t segmentMinimum = 0x1100000;
constexpr uint64_t segmentGranule = 64 * 1024;

// A chain is walked whole to find its lowest fitting block, and in part to
// find the block before one that leaves it, each block a likely cache miss,
// so a list longer than chainLimit moves into its index; back at chainReturn,
// so that a list going to and fro around the limit does not rebuild its
// index every time.
constexpr uint32_t chainLimit = 64;
constexpr uint32_t chainReturn = 32;

// The heap lock: mutual exclusion on one atomic word, since the heap must not
// allocate to lock. Taking it costs one atomic exchange and giving it back a
// plain release store: HeapBench showed the lock's atomic operations to be
// half the cost of a release, so there is no second one. Contention is rare
// (the playback thread does not allocate), so a waiter spins briefly and then
// yields the processor, out of line: with a call on their way, allocate and
// release would save and restore registers every time.
class HeapLock {
public:
    explicit HeapLock(std::atomic<int32_t>& word) : held(word) { take(word); }
    HeapLock(const HeapLock&) = delete;
    ~HeapLock() { give(held); }

    static void take(std::atomic<int32_t>& word) {
        if (!tryToTake(word)) [[unlikely]]
            waitAndTake(word);
    }
    static bool tryToTake(std::atomic<int32_t>& word) { return word.exchange(1, std::memory_order_acquire) == 0; }
    static void give(std::atomic<int32_t>& word) { word.store(0, std::memory_order_release); }
    [[gnu::noinline, gnu::cold]] static void waitAndTake(std::atomic<int32_t>& word) {
        do {
            for (int spins = 0; word.load(std::memory_order_relaxed) != 0; ++spins) {
                if (spins >= 64)
                    sched_yield();
#if defined(__x86_64__) || defined(__i386__)
                else
                    __builtin_ia32_pause();
#endif
            }
        } while (!tryToTake(word));
    }

private:
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

// Requests up to this size may take the plain way (see allocate); the
// bound keeps its arithmetic far from overflow.
constexpr uint64_t plainLimit = uint64_t(1) << 40;

// operator new's alignments: 16, and 8 or less (all of which mean 8).
bool plainAlignment(uint64_t alignment) { return (alignment <= 16) & ((0x101ff >> (alignment & 31)) & 1); }

uint64_t roundedSize(uint64_t request) {
    return request < minBlockSize ? minBlockSize : (request + 7) & ~uint64_t(7);
}

// Requests this large are refused before any arithmetic can overflow.
bool oversized(uint64_t request) { return request > ~uint64_t(0) - maxAlignment; }

}  // namespace

// A block: two header words ahead of the user area. header: the user area's
// length in 8-byte words, top bit set while in use. previous: the physically
// preceding block, null for the first block of a segment. A chained free
// block keeps its chain link where the user data would be: every block has
// room for it.
struct HeapBlock {
    uint64_t header;
    HeapBlock* previous;
    HeapBlock* nextFree;

    char* user() { return reinterpret_cast<char*>(this) + headerBytes; }
    uint64_t size() const { return header << 3; }  // drops the in-use bit
    bool inUse() const { return (header & inUseBit) != 0; }
    bool isTerminator() const { return header == terminatorWord; }
    HeapBlock* following() { return reinterpret_cast<HeapBlock*>(user() + size()); }
    void setFree(uint64_t bytes) { header = bytes / 8; }
    uint64_t key() const { return uint64_t(reinterpret_cast<uintptr_t>(this)); }
};
static_assert(offsetof(HeapBlock, nextFree) == headerBytes && sizeof(HeapBlock) == headerBytes + minBlockSize,
              "the chain link fills the smallest user area");

static HeapBlock* blockAt(uint64_t key) { return reinterpret_cast<HeapBlock*>(uintptr_t(key)); }

constexpr std::array<uint16_t, Heap::tabulatedSizes / 4 + 1> Heap::tabulatedLists = [] {
    std::array<uint16_t, tabulatedSizes / 4 + 1> lists{};
    for (uint64_t i = 0; i < lists.size(); i++)
        lists[i] = uint16_t(computedListIndex(4 * i));
    return lists;
}();

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

inline void Heap::markListNonEmpty(int32_t list) {
    bitmap[list >> 6] |= uint64_t(1) << (list & 63);
    bitmapSummary |= 1u << (list >> 6);
}

inline void Heap::markListEmpty(int32_t list) {
    bitmap[list >> 6] &= ~(uint64_t(1) << (list & 63));
    if (!bitmap[list >> 6])
        bitmapSummary &= ~(1u << (list >> 6));
}

// Lists a free block that its neighbours already know: onto the chain, unless
// the list is indexed or its chain full.
[[gnu::always_inline]] inline void Heap::listBlock(HeapBlock* block, uint64_t size) {
    int32_t list = listIndex(size);
    if (chainHasRoom(list)) [[likely]]
        chain(block, list);
    else
        listIndexed(list, block, size);
}

[[gnu::always_inline]] inline bool Heap::chainHasRoom(int32_t list) const {
    return heads[list].length < chainLimit;
}

// The list's bits are set, and cleared when it empties, without a branch:
// whether a list was or becomes empty is a coin toss on HeapBench, and a
// mispredicted branch costs more than the few instructions.
[[gnu::always_inline]] inline void Heap::chain(HeapBlock* block, int32_t list) {
    ListHead& head = heads[list];
    block->nextFree = head.first;
    head.first = block;
    head.length++;
    markListNonEmpty(list);
}

// Takes a block off its list's chain, given the block before it there (null
// for the first).
[[gnu::always_inline]] inline void Heap::unchain(HeapBlock* block, HeapBlock* before, int32_t list) {
    ListHead& head = heads[list];
    (before ? before->nextFree : head.first) = block->nextFree;
    uint64_t& word = bitmap[list >> 6];
    word &= ~(uint64_t(--head.length == 0) << (list & 63));
    bitmapSummary &= ~(uint32_t(word == 0) << (list >> 6));
}

// The block before this one on its list's chain, null when it is the first.
HeapBlock* Heap::chainedBefore(HeapBlock* block, int32_t list) {
    HeapBlock* before = nullptr;
    for (HeapBlock* at = heads[list].first; at != block; before = at, at = at->nextFree)
        chainSteps++;
    return before;
}

// Takes a listed free block off its list (the one its size gives).
void Heap::unlistBlock(HeapBlock* block, int32_t list) {
    if (heads[list].indexed())
        unlistIndexed(list, block);
    else
        unchain(block, chainedBefore(block, list), list);
}

// The list's other side, for listBlock: a list already indexed, or a chain at
// its limit, which moves into the index first. When the index cannot get the
// nodes it needs, the list goes back to, or stays, a chain.
[[gnu::noinline]] void Heap::listIndexed(int32_t list, HeapBlock* block, uint64_t size) {
    ListHead& head = heads[list];
    if (head.indexed() || chainToIndex(list)) {
        if (indexes[list].insert(indexNodes, block->key(), size)) {
            head.length++;
            return;
        }
        indexToChain(list);
    }
    chain(block, list);
}

[[gnu::noinline]] void Heap::unlistIndexed(int32_t list, HeapBlock* block) {
    ListHead& head = heads[list];
    indexes[list].erase(indexNodes, block->key());
    if (--head.length == indexedFlag) {
        head.length = 0;
        markListEmpty(list);
    } else if (head.count() <= chainReturn) {
        indexToChain(list);
    }
}

// Moves every block of a chain into the list's index; on failure undoes what
// it did, leaving the chain as it was.
bool Heap::chainToIndex(int32_t list) {
    ListHead& head = heads[list];
    FreeList& index = indexes[list];
    for (HeapBlock* block = head.first; block; block = block->nextFree) {
        if (!index.insert(indexNodes, block->key(), block->size())) {
            for (HeapBlock* undo = head.first; undo != block; undo = undo->nextFree)
                index.erase(indexNodes, undo->key());
            return false;
        }
    }
    head.first = nullptr;
    head.length |= indexedFlag;
    return true;
}

// Moves every block of the list's index onto its chain. Giving back nodes
// needs none, so this cannot fail.
void Heap::indexToChain(int32_t list) {
    ListHead& head = heads[list];
    FreeList& index = indexes[list];
    for (FreeList::Entry entry; (entry = index.lowest(0, 0)).address;) {
        index.erase(indexNodes, entry.address);
        HeapBlock* block = blockAt(entry.address);
        block->nextFree = head.first;
        head.first = block;
    }
    head.length &= ~indexedFlag;
}

// The peaks rarely move, so a branch that is nearly never taken costs less
// than a conditional move and a store every time.
inline void Heap::notePeaks(uint64_t blockSize) {
    uint64_t withHeaders = counters.allocSize + headerBytes * counters.allocBlocks;
    if (counters.allocSize > counters.peakAllocSize) [[unlikely]]
        counters.peakAllocSize = counters.allocSize;
    if (withHeaders > counters.peakBlockSize) [[unlikely]]
        counters.peakBlockSize = withHeaders;
    if (blockSize > counters.maxAllocSize) [[unlikely]]
        counters.maxAllocSize = blockSize;
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

// The lowest-addressed block of a list that the request fits in: the whole
// chain is walked, or the index finds the lowest block large enough, and
// only a block too small for the alignment gap it would need sends the
// search on past it.
bool Heap::lowestFitIn(int32_t list, uint64_t size, uint64_t alignment, Fit& fit) {
    if (heads[list].indexed())
        return lowestIndexedFit(list, size, alignment, fit);
    fit.block = nullptr;
    for (HeapBlock *block = heads[list].first, *before = nullptr; block; before = block, block = block->nextFree) {
        chainSteps++;
        char* user = placeIn(block, block->size(), size, alignment);
        if (user && (!fit.block || block < fit.block))
            fit = {block, before, block->size(), user, list};
    }
    return fit.block != nullptr;
}

bool Heap::lowestIndexedFit(int32_t list, uint64_t size, uint64_t alignment, Fit& fit) {
    for (uint64_t from = 0;;) {
        FreeList::Entry entry = indexes[list].lowest(size, from);
        if (!entry.address)
            return false;
        HeapBlock* block = blockAt(entry.address);
        if (char* user = placeIn(block, entry.size, size, alignment)) {
            fit = {block, nullptr, entry.size, user, list};
            return true;
        }
        from = entry.address + 1;
    }
}

// In a list above the exact one every block fits, bar a segment's first
// block, which may need a wider gap in front: the first that fits is taken.
bool Heap::anyFitIn(int32_t list, uint64_t size, uint64_t alignment, Fit& fit) {
    if (heads[list].indexed())
        return lowestIndexedFit(list, size, alignment, fit);
    for (HeapBlock *block = heads[list].first, *before = nullptr; block; before = block, block = block->nextFree) {
        if (char* user = placeIn(block, block->size(), size, alignment)) {
            fit = {block, before, block->size(), user, list};
            return true;
        }
    }
    return false;
}

// The exact list may hold blocks smaller than the search size; in the lists
// above it every block fits (bar a segment's first block).
bool Heap::findFit(uint64_t searchSize, uint64_t size, uint64_t alignment, Fit& fit) {
    int32_t exact = listIndex(searchSize);
    if (heads[exact].length) {
        if (lowestFitIn(exact, size, alignment, fit))
            return true;
        counters.slowBucket++;
    }
    for (int32_t list = firstNonEmptyList(exact + 1); list >= 0; list = firstNonEmptyList(list + 1))
        if (anyFitIn(list, size, alignment, fit))
            return true;
    return false;
}

// The search for operator new's alignments, which every block above the
// exact list meets: the lowest block of the exact list's chain that the
// request fits in, else the first block of the first non-empty list above. A
// user area that is 8 bytes off a 16-byte alignment needs 8 more bytes
// (gapMask 8). Chains only: false when an index is in the way, when nothing
// fits or nothing is free, and the general search takes over.
[[gnu::always_inline]] inline bool Heap::smallFit(uint64_t size, uint64_t searchSize, uint64_t gapMask, Fit& fit) {
    fit.list = listIndex(searchSize);
    fit.before = nullptr;
    if (HeapBlock* block = heads[fit.list].first) {
        chainSteps += heads[fit.list].length;  // the whole chain is walked
        uintptr_t lowest = ~uintptr_t(0);
        for (HeapBlock* before = nullptr; block; before = block, block = block->nextFree) {
            uintptr_t at = uintptr_t(block);
            bool better = block->size() >= size + (at & gapMask) && at < lowest;
            lowest = better ? at : lowest;
            fit.before = better ? before : fit.before;
        }
        fit.block = reinterpret_cast<HeapBlock*>(lowest);
        return lowest != ~uintptr_t(0);
    }
    if (heads[fit.list].length)  // indexed
        return false;
    fit.list = firstNonEmptyList(fit.list + 1);
    if (fit.list < 0)
        return false;
    fit.block = heads[fit.list].first;
    return fit.block != nullptr;
}

// Takes a block that a search found off its list.
[[gnu::always_inline]] inline void Heap::unlistFound(const Fit& fit) {
    if (heads[fit.list].indexed())
        unlistIndexed(fit.list, fit.block);
    else
        unchain(fit.block, fit.before, fit.list);
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

// A block's free neighbours, null where a neighbour is in use (or missing).
// Both headers are loaded before either is looked at, so that their cache
// misses overlap; a segment's first block borrows a stand-in.
[[gnu::always_inline]] inline Heap::Neighbours Heap::freeNeighbours(HeapBlock* block) {
    static const HeapBlock noneInFront = {inUseBit, nullptr, nullptr};
    HeapBlock* next = block->following();
    HeapBlock* previous = block->previous;
    bool nextFree = !next->inUse();
    bool previousFree = !(previous ? previous : &noneInFront)->inUse();
    return {nextFree ? next : nullptr, previousFree ? previous : nullptr};
}

// Takes a free, unlisted block whose neighbours already point at it: merges
// it with free neighbours and lists the result.
inline void Heap::coalesceAndList(HeapBlock* block) {
    Neighbours free = freeNeighbours(block);
    if (free.next || free.previous)
        mergeAndList(block, free.next, free.previous);
    else
        listBlock(block, block->size());
}

// The merging side of coalesceAndList. A free block in front that grows
// without leaving its chain stays where it is.
[[gnu::noinline]] void Heap::mergeAndList(HeapBlock* block, HeapBlock* next, HeapBlock* previous) {
    if (next) {
        unlistBlock(next, listIndex(next->size()));
        block->header += 2 + next->header;
    }
    if (previous) {
        int32_t list = listIndex(previous->size());
        previous->header += 2 + block->header;
        block = previous;
        if (listIndex(block->size()) != list || heads[list].indexed()) {
            unlistBlock(block, list);
            listBlock(block, block->size());
        }
    } else {
        listBlock(block, block->size());
    }
    HeapBlock* following = block->following();
    if (!following->isTerminator())
        following->previous = block;
}

// Hands out a listed free block: the request's place in it, with what is
// left in front and behind as free blocks. Those need no merging (the blocks
// beside a free block are in use).
char* Heap::carve(const Fit& fit, uint64_t size) {
    HeapBlock* block = fit.block;
    char* user = fit.user;
    auto* following = reinterpret_cast<HeapBlock*>(block->user() + fit.blockSize);
    // front gap | header, request | tail: gap is 0, too small for a block
    // (it joins the block in front) or a free block of its own.
    uint64_t gap = uint64_t(user - block->user());
    uint64_t placed = fit.blockSize - gap;
    bool split = placed >= size + headerBytes + smallestTail(size);
    unlistFound(fit);
    auto* taken = reinterpret_cast<HeapBlock*>(user - headerBytes);
    if (gap) {
        HeapBlock* front = block;
        if (gap >= minSplitBytes) {
            block->setFree(gap - headerBytes);
            listBlock(block, gap - headerBytes);
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
        auto* tail = reinterpret_cast<HeapBlock*>(user + size);
        uint64_t tailSize = placed - size - headerBytes;
        tail->setFree(tailSize);
        tail->previous = taken;
        listBlock(tail, tailSize);
        behind = tail;
        takenSize = size;
    }
    if (behind != block && !following->isTerminator())
        following->previous = behind;
    taken->header = inUseBit | (takenSize / 8);
    counters.allocBlocks++;
    counters.allocSize += takenSize;
    notePeaks(takenSize);
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
    fillGranuleTable();
    counters.numSegments++;
    counters.totalSize += length;
    auto* first = reinterpret_cast<HeapBlock*>(start);
    first->setFree(length - 24);
    first->previous = nullptr;
    *reinterpret_cast<uint64_t*>(start + length - 8) = terminatorWord;
    listBlock(first, first->size());
    return true;
}

// Releases hit the segments in random order, so a table names a segment for
// each 16 MiB of address space: no segment is smaller, so at most two meet
// in one such granule, and the table holds the one that begins there. An
// address in the other, or in a granule that shares the table's slot with
// another, finds its segment by a branch-free binary search instead. (With a
// cache of the last release's segment, HeapBench missed it on a third of its
// releases, each a mispredicted branch.)
inline const Heap::Segment* Heap::findSegment(const void* address) {
    const Segment* likely = segments + granuleSegments[granuleSlot(address)];
    if (uintptr_t(address) - uintptr_t(likely->start) < likely->length) [[likely]]
        return likely;
    if (segmentCount == 0)
        return nullptr;
    const Segment* base = segments;
    for (int32_t count = segmentCount; count > 1; count -= count / 2)
        base = base[count / 2].start <= address ? base + count / 2 : base;
    if (uintptr_t(address) - uintptr_t(base->start) >= base->length)
        return nullptr;
    return base;
}

inline uint32_t Heap::granuleSlot(const void* address) {
    return uint32_t(uintptr_t(address) >> granuleBits) & (granuleSlots - 1);
}

// After a segment has joined the sorted array, whose indexes it shifts. In
// address order, so that where two segments meet in a granule, the table
// holds the one that begins there.
void Heap::fillGranuleTable() {
    static_assert(maxSegments <= 256, "the table holds segment indexes in bytes");
    for (int32_t i = 0; i < segmentCount; i++) {
        uintptr_t first = uintptr_t(segments[i].start) >> granuleBits;
        uintptr_t last = (uintptr_t(segments[i].start) + segments[i].length - 1) >> granuleBits;
        for (uintptr_t granule = first; granule <= last && granule - first < granuleSlots; granule++)
            granuleSegments[granule & (granuleSlots - 1)] = uint8_t(i);
    }
}

// The block whose user area starts at address, when it is one in use.
HeapBlock* Heap::liveBlockAt(void* address) {
    const Segment* segment = findSegment(address);
    return segment ? liveBlockIn(segment, address) : nullptr;
}

// (A header inside the segment is never its terminator, which ends it.)
inline HeapBlock* Heap::liveBlockIn(const Segment* segment, void* address) {
    if ((uintptr_t(address) & 7) || static_cast<char*>(address) < segment->start + headerBytes)
        return nullptr;
    auto* block = reinterpret_cast<HeapBlock*>(static_cast<char*>(address) - headerBytes);
    return block->inUse() ? block : nullptr;
}

// A block from smallFit used whole: no gap in front, nothing worth splitting
// off behind.
[[gnu::always_inline]] inline void* Heap::takeWhole(const Fit& fit) {
    unchain(fit.block, fit.before, fit.list);
    fit.block->header = inUseBit | (fit.blockSize / 8);
    counters.allocBlocks++;
    counters.allocSize += fit.blockSize;
    notePeaks(fit.blockSize);
    return fit.block->user();
}

// The general way: any alignment, any list, blocks carved as need be, and a
// new segment when nothing fits.
void* Heap::allocateGenerally(size_t request, size_t alignment) {
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

// Runs one of the slow ways out of line and gives the lock back after it, so
// that calling it is the fast way's last step and nothing of the fast way's
// has to survive the call: the fast way then needs no registers saved.
template <auto way, class... Arguments>
[[gnu::noinline]] auto Heap::thenUnlock(Arguments... arguments) {
    if constexpr (std::is_void_v<decltype((this->*way)(arguments...))>) {
        (this->*way)(arguments...);
        HeapLock::give(lock);
    } else {
        auto result = (this->*way)(arguments...);
        HeapLock::give(lock);
        return result;
    }
}

// allocate and release take the lock themselves: a wait for it, like the
// slow ways, is a call that nothing of theirs has to survive. They come back
// through the same inline code with the lock held.
void* Heap::allocate(size_t request, size_t alignment) {
    if (!HeapLock::tryToTake(lock)) [[unlikely]]
        return waitThenAllocate(request, alignment);
    return allocateHeld(request, alignment);
}

[[gnu::noinline, gnu::cold]] void* Heap::waitThenAllocate(size_t request, size_t alignment) {
    HeapLock::waitAndTake(lock);
    return allocateHeld(request, alignment);
}

// operator new's alignments take the plain way: smallFit, and the block used
// whole when it can be. The rest, and the plain way's misses, take the
// general one, which repeats the search. Gives the lock back.
[[gnu::always_inline]] inline void* Heap::allocateHeld(size_t request, size_t alignment) {
    counters.allocCalls++;
    if (plainAlignment(alignment) && request <= plainLimit) [[likely]] {
        uint64_t size = roundedSize(request);
        uint64_t gapMask = (alignment >> 1) & 8;  // 8 for alignment 16, else 0
        Fit fit;
        if (smallFit(size, size + (gapMask ? 15 : 0), gapMask, fit)) [[likely]] {
            fit.blockSize = fit.block->size();
            uint64_t gap = uintptr_t(fit.block) & gapMask;
            if (!gap && fit.blockSize < size + headerBytes + smallestTail(size)) [[likely]] {
                void* memory = takeWhole(fit);
                HeapLock::give(lock);
                return memory;
            }
            return thenUnlock<&Heap::carveFound>(fit.block, fit.before, gap, fit.list, size);
        }
    }
    return thenUnlock<&Heap::allocateGenerally>(request, alignment);
}

char* Heap::carveFound(HeapBlock* block, HeapBlock* before, uint64_t gap, int32_t list, uint64_t size) {
    return carve({block, before, block->size(), block->user() + gap, list}, size);
}

[[gnu::always_inline]] inline void Heap::releaseBlock(HeapBlock* block) {
    counters.freeCalls++;
    counters.allocBlocks--;
    counters.allocSize -= block->size();
    block->header &= ~inUseBit;
    coalesceAndList(block);
}

bool Heap::release(void* address) {
    if (!HeapLock::tryToTake(lock)) [[unlikely]]
        return waitThenRelease(address);
    return releaseHeld(address);
}

[[gnu::noinline, gnu::cold]] bool Heap::waitThenRelease(void* address) {
    HeapLock::waitAndTake(lock);
    return releaseHeld(address);
}

// The common release, a block between two in use listed on a chain, runs
// inline; merging and indexes take the slow ways (see thenUnlock). Gives the
// lock back.
[[gnu::always_inline]] inline bool Heap::releaseHeld(void* address) {
    const Segment* segment = findSegment(address);
    HeapBlock* block = segment ? liveBlockIn(segment, address) : nullptr;
    if (!block) [[unlikely]] {  // a foreign, stray or repeated release
        HeapLock::give(lock);
        return segment != nullptr;
    }
    uint64_t size = block->size();
    Neighbours free = freeNeighbours(block);
    counters.freeCalls++;
    counters.allocBlocks--;
    counters.allocSize -= size;
    block->header = size / 8;
    if (free.next || free.previous) [[unlikely]] {
        thenUnlock<&Heap::mergeAndList>(block, free.next, free.previous);
        return true;
    }
    int32_t list = listIndex(size);
    if (!chainHasRoom(list)) [[unlikely]] {
        thenUnlock<&Heap::listIndexed>(list, block, size);
        return true;
    }
    chain(block, list);
    HeapLock::give(lock);
    return true;
}

void* Heap::allocateCounted(size_t request, size_t alignment) {
    counters.allocCalls++;
    return allocateGenerally(request, alignment);
}

// In place: shrinking always; growing when the next block is free and large
// enough. Otherwise the content moves.
void* Heap::reallocateLocked(void* address, size_t request) {
    counters.reallocCalls++;
    size_t alignment = request < 16 ? 8 : 16;
    if (!address)
        return allocateCounted(request, alignment);
    HeapBlock* block = liveBlockAt(address);
    if (!block || oversized(request))
        return nullptr;
    uint64_t size = roundedSize(request);
    uint64_t oldSize = block->size();
    if (size > oldSize) {
        HeapBlock* next = block->following();
        if (next->inUse() || oldSize + headerBytes + next->size() < size) {
            void* moved = allocateCounted(request, alignment);
            if (moved) {
                std::memcpy(moved, address, oldSize);
                releaseBlock(block);
            }
            return moved;
        }
        uint64_t nextSize = next->size();
        unlistBlock(next, listIndex(nextSize));
        block->header += 2 + next->header;
        counters.allocSize += headerBytes + nextSize;
        HeapBlock* following = block->following();
        if (!following->isTerminator())
            following->previous = block;
        if (HeapBlock* tail = splitTail(block, size))
            listBlock(tail, tail->size());  // the block behind was next's: in use
    } else if (HeapBlock* tail = splitTail(block, size)) {
        coalesceAndList(tail);  // shrinking: the block behind may be free
    }
    notePeaks(block->size());
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
    return statisticsLocked();
}

// Every byte of a segment is a block's header, its user area or the
// segment's terminator, so the free bytes follow from the rest.
HeapStatistics Heap::statisticsLocked() {
    HeapStatistics result;
    result.allocBlocks = counters.allocBlocks;
    result.allocSize = counters.allocSize;
    result.peakAllocSize = counters.peakAllocSize;
    result.peakBlockSize = counters.peakBlockSize;
    for (int32_t list = 0; list < listCount; list++) {
        result.freeBlocks += heads[list].count();
        result.largestFreeChain = std::max<uint64_t>(result.largestFreeChain, heads[list].count());
        result.maxFreeSize = std::max(result.maxFreeSize, indexes[list].largest());
        for (HeapBlock* block = heads[list].first; block; block = block->nextFree)
            result.maxFreeSize = std::max(result.maxFreeSize, block->size());
    }
    result.totalSize = counters.totalSize;
    result.bookKeeping = headerBytes * (counters.allocBlocks + result.freeBlocks) + 8 * counters.numSegments;
    result.freeSize = counters.totalSize - counters.allocSize - result.bookKeeping;
    result.maxAllocSize = counters.maxAllocSize;
    result.numSegments = counters.numSegments;
    result.allocCalls = counters.allocCalls;
    result.reallocCalls = counters.reallocCalls;
    result.freeCalls = counters.freeCalls;
    result.reallocSucc = counters.reallocSucc;
    result.slowBucket = counters.slowBucket;
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

// Each entry of an index is a free block of the list's size class whose
// neighbours know it.
bool Heap::entryIsFreeBlock(void* context, FreeList::Entry entry) {
    auto* c = static_cast<ListCheck*>(context);
    HeapBlock* block = blockAt(entry.address);
    const Segment* segment = c->heap->findSegment(block);
    if (!segment || (entry.address & 7) || entry.address + minSplitBytes + 8 > uintptr_t(segment->start) + segment->length)
        return false;
    HeapBlock* following = block->following();
    bool linked = following->isTerminator() ? reinterpret_cast<char*>(following) + 8 == segment->start + segment->length
                                            : following->previous == block;
    return !block->inUse() && block->size() == entry.size && listIndex(entry.size) == c->list && linked;
}

// Each list's bit matches its emptiness and its length its blocks, which are
// chained or indexed, never both, and each a free block of the list's size
// class that its neighbours know.
bool Heap::verifyLists(uint64_t& listed) {
    ListCheck check{this, 0};
    for (; check.list < listCount; check.list++) {
        int32_t list = check.list;
        const ListHead& head = heads[list];
        bool bit = (bitmap[list >> 6] >> (list & 63)) & 1;
        bool wordBit = (bitmapSummary >> (list >> 6)) & 1;
        if (bit != (head.count() != 0) || wordBit != (bitmap[list >> 6] != 0))
            return false;
        if (head.indexed() && (head.first || !head.count()))
            return false;
        uint64_t chained = 0;
        for (HeapBlock* block = head.first; block && chained <= head.count(); block = block->nextFree, chained++)
            if (!entryIsFreeBlock(&check, {block->key(), block->size()}))
                return false;
        if (!indexes[list].verify(entryIsFreeBlock, &check))
            return false;
        if ((head.indexed() ? indexes[list].length() : chained) != head.count() || (!head.indexed() && !indexes[list].empty()))
            return false;
        listed += head.count();
    }
    return true;
}

uint64_t Heap::indexSize() {
    HeapLock hold(lock);
    return indexNodes.mappedBytes();
}

uint64_t Heap::searchSteps() {
    HeapLock hold(lock);
    return chainSteps;
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
    HeapStatistics counted = statisticsLocked();
    return listed == walked.freeBlocks && walked.freeBlocks == counted.freeBlocks &&
           walked.freeSize == counted.freeSize && walked.allocBlocks == counters.allocBlocks &&
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
