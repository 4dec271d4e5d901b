// Heap: placement, alignment, merging and statistics on private instances, and
// the global operators on the process heap (unless the build keeps the
// platform allocator).
#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

#include "core/Heap.h"

namespace {

constexpr size_t MiB = size_t(1) << 20;

// A pattern tied to the tag: dense in the first MiB, sparse beyond it to keep
// the test quick, at the same offsets whatever the block's size.
size_t nextOffset(size_t i) { return i < MiB ? i + 1 : i + 4093; }
uint8_t patternByte(uint32_t tag, size_t i) { return uint8_t(tag * 131 + i * 7 + (i >> 8)); }

void fillPattern(void* memory, size_t size, uint32_t tag) {
    for (size_t i = 0; i < size; i = nextOffset(i))
        static_cast<uint8_t*>(memory)[i] = patternByte(tag, i);
}

bool patternIntact(const void* memory, size_t size, uint32_t tag) {
    for (size_t i = 0; i < size; i = nextOffset(i))
        if (static_cast<const uint8_t*>(memory)[i] != patternByte(tag, i))
            return false;
    return true;
}

bool alignedTo(const void* memory, size_t alignment) { return uintptr_t(memory) % alignment == 0; }

// Every byte of every segment is a header, a user area or a terminator; with
// nothing in use, each segment is one free block behind its 24 bytes of overhead.
void expectConsistent(Heap& heap, bool empty = false) {
    ASSERT_TRUE(heap.verify());
    HeapStatistics s = heap.statistics();
    EXPECT_EQ(s.allocSize + s.freeSize + s.bookKeeping, s.totalSize);
    if (empty) {
        EXPECT_EQ(s.allocBlocks, 0u);
        EXPECT_EQ(s.freeBlocks, s.numSegments);
        EXPECT_EQ(s.freeSize, s.totalSize - 24 * s.numSegments);
    }
}

// Log-uniform from 1 byte to 8 KiB, with one request in 150 of 17 to 40 MiB.
size_t randomSize(std::mt19937& random) {
    if (random() % 150 == 0)
        return 17 * MiB + random() % (23 * MiB);
    return size_t(std::exp2(std::uniform_real_distribution<double>(0, 13)(random)));
}

}  // namespace

TEST(HeapTest, listIndexFollowsItsRule) {
    // Lists of 4 bytes up to 512, then 64 lists per power of two up to 1 GiB;
    // a size goes to the first list whose bound is not below it.
    std::vector<uint64_t> bounds;
    for (uint64_t bound = 0; bound < 512; bound += 4)
        bounds.push_back(bound);
    for (uint64_t level = 9; level < 30; level++)
        for (uint64_t step = 0; step < 64; step++)
            bounds.push_back((uint64_t(1) << level) + step * (uint64_t(1) << (level - 6)));
    std::mt19937_64 random(3);
    for (int32_t i = 0; i < 2000000; i++) {
        uint64_t size = i < 100000 ? uint64_t(i) : random() >> (random() % 64);
        int32_t expected = size >= (uint64_t(1) << 30)
                               ? Heap::listCount - 1
                               : int32_t(std::lower_bound(bounds.begin(), bounds.end(), size) - bounds.begin());
        ASSERT_EQ(Heap::listIndex(size), expected) << "size " << size;
    }
}

// Sizes go up in steps of 8 from 8: on a fresh heap the blocks follow one
// another, each 16 bytes of header past the end of the one before, and an
// 8-byte block released between two in use is listed and used again.
TEST(HeapTest, blocksComeInStepsOf8Bytes) {
    Heap heap;
    const std::pair<size_t, size_t> requests[] = {{1, 8}, {8, 8}, {9, 16}, {16, 16}, {17, 24}, {24, 24}, {100, 104}};
    char* previous = nullptr;
    size_t previousSize = 0, total = 0;
    for (auto [request, size] : requests) {
        auto* memory = static_cast<char*>(heap.allocate(request, 8));
        ASSERT_NE(memory, nullptr);
        EXPECT_TRUE(!previous || memory == previous + previousSize + 16) << "after " << previousSize << " bytes";
        previous = memory;
        previousSize = size;
        total += size;
    }
    EXPECT_EQ(heap.statistics().allocSize, total);
    void* a = heap.allocate(8, 8);
    void* between = heap.allocate(8, 8);
    void* b = heap.allocate(8, 8);
    ASSERT_TRUE(heap.release(between));
    EXPECT_EQ(heap.statistics().freeBlocks, 2u);  // the 8 bytes and the rest of the segment
    EXPECT_EQ(heap.allocate(5, 8), between);
    for (void* memory : {a, between, b})
        heap.release(memory);
}

// Free blocks A and C (A lower) sit between blocks in use; the next request
// that both fit takes A, whichever was released first; one that only C fits
// takes C; and from a list above the exact one, either is taken.
TEST(HeapTest, takesTheLowestFittingBlock) {
    struct Case {
        const char* name;
        size_t sizeA, sizeC, request;
        bool releaseCFirst;
        int32_t expected;  // 0: A, 1: C, 2: either
    };
    const Case cases[] = {
        {"one size, A released first", 64, 64, 64, false, 0},
        {"one size, C released first", 64, 64, 64, true, 0},
        {"8-byte blocks", 8, 8, 8, true, 0},
        {"mixed sizes, both fit", 2064, 2056, 2050, true, 0},
        {"mixed sizes, only C fits", 2056, 2064, 2064, false, 1},
        {"list above the exact one", 4000, 3992, 100, true, 2},
        {"list above the exact one, other order", 4000, 3992, 100, false, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(Heap::listIndex(c.sizeA), Heap::listIndex(c.sizeC));
        Heap heap;
        void* a = heap.allocate(c.sizeA, 8);
        void* guard = heap.allocate(8, 8);
        void* cc = heap.allocate(c.sizeC, 8);
        void* guard2 = heap.allocate(8, 8);
        ASSERT_LT(a, cc);
        heap.release(c.releaseCFirst ? cc : a);
        heap.release(c.releaseCFirst ? a : cc);
        void* taken = heap.allocate(c.request, 8);
        if (c.expected == 2)
            EXPECT_TRUE(taken == a || taken == cc);
        else
            EXPECT_EQ(taken, c.expected == 0 ? a : cc);
        expectConsistent(heap);
        for (void* memory : {guard, guard2})
            heap.release(memory);
    }
}

// Over a long random sequence, every allocation takes a block a plain scan of
// the heap allows: among the free blocks of the exact list (the one for the
// search size) the lowest-addressed that fits, or else any block of the first
// list above it that holds one. Sizes drawn from a handful, released from a
// full heap, make long lists, which move into their indexes and back.
TEST(HeapTest, everyAllocationTakesTheLowestFittingBlockOfItsList) {
    struct FreeBlock {
        char* user;
        uint64_t size;
    };
    auto collectFree = [](void* context, const Heap::BlockView& block) {
        if (!block.inUse)
            static_cast<std::vector<FreeBlock>*>(context)->push_back({block.user, block.size});
    };
    const size_t fewSizes[] = {8, 16, 40, 64, 72, 2050, 2064, 3000};
    for (bool few : {false, true}) {
        SCOPED_TRACE(few ? "a few sizes" : "log-uniform sizes");
        std::mt19937 random(44);
        Heap heap;
        std::vector<void*> live(few ? 1200 : 400, nullptr);
        std::vector<FreeBlock> free;
        int32_t checked = 0;
        uint64_t longestList = 0;
        if (few)  // a full heap first: the early releases leave holes between blocks in use
            for (void*& slot : live)
                slot = heap.allocate(fewSizes[random() % std::size(fewSizes)], 8);
        for (int32_t step = 0; step < 20000; step++) {
            if (step % 100 == 0)
                longestList = std::max(longestList, heap.statistics().largestFreeChain);
            void*& slot = live[random() % live.size()];
            if (slot) {
                heap.release(slot);
                slot = nullptr;
                continue;
            }
            size_t request = few ? fewSizes[random() % std::size(fewSizes)]
                                 : size_t(std::exp2(std::uniform_real_distribution<double>(0, 12)(random)));
            size_t alignment = random() % 2 ? 8 : 16;
            uint64_t size = std::max<uint64_t>(8, (request + 7) & ~uint64_t(7));
            uint64_t searchSize = size + (alignment == 8 ? 0 : alignment - 1);
            // A block fits when the request fits behind its user area, moved up
            // to the alignment (the 8 bytes skipped then go to the block in front).
            auto fits = [&](const FreeBlock& b) { return b.size >= size + (uintptr_t(b.user) & (alignment - 1)); };
            free.clear();
            heap.forEachBlock(collectFree, &free);
            int32_t exact = Heap::listIndex(searchSize);
            std::vector<const FreeBlock*> allowed;
            for (const FreeBlock& b : free)
                if (Heap::listIndex(b.size) == exact && fits(b) && (allowed.empty() || b.user < allowed[0]->user))
                    allowed = {&b};
            for (int32_t list = exact + 1; allowed.empty() && list < Heap::listCount; list++)
                for (const FreeBlock& b : free)
                    if (Heap::listIndex(b.size) == list && fits(b))
                        allowed.push_back(&b);
            slot = heap.allocate(request, alignment);
            ASSERT_NE(slot, nullptr);
            ASSERT_TRUE(alignedTo(slot, alignment));
            if (allowed.empty())
                continue;  // a new segment served it
            auto inside = [&](const FreeBlock* b) {
                return static_cast<char*>(slot) >= b->user && static_cast<char*>(slot) < b->user + b->size;
            };
            ASSERT_TRUE(std::any_of(allowed.begin(), allowed.end(), inside)) << "step " << step;
            checked++;
            if (step % 1000 == 0)
                expectConsistent(heap);
        }
        EXPECT_GT(checked, 8000);
        EXPECT_GT(longestList, few ? 40u : 5u);
        expectConsistent(heap);
    }
}

// 100,000 blocks of one size released in random order make one long list;
// taking them back lowest first must not walk it each time (which would be
// some 5 billion steps). The blocks between them stay in use, so none merge.
TEST(HeapTest, aLongListIsSearchedInBoundedSteps) {
    constexpr int32_t count = 100000;
    std::mt19937 random(3);
    Heap heap;
    std::vector<void*> listed, kept;
    for (int32_t i = 0; i < count; i++) {
        listed.push_back(heap.allocate(48, 8));
        kept.push_back(heap.allocate(8, 8));
    }
    std::vector<void*> shuffled = listed;
    std::shuffle(shuffled.begin(), shuffled.end(), random);
    for (void* memory : shuffled)
        ASSERT_TRUE(heap.release(memory));
    uint64_t stepsBefore = heap.searchSteps();
    for (int32_t i = 0; i < count; i++)
        ASSERT_EQ(heap.allocate(48, 8), listed[i]) << "allocation " << i;
    EXPECT_LT(heap.searchSteps() - stepsBefore, uint64_t(count) * 64);
    for (void* memory : kept)
        heap.release(memory);
    expectConsistent(heap);
}

TEST(HeapTest, alignmentsAreHonoured) {
    const size_t sizes[] = {1, 8, 15, 16, 17, 100, 5000, 70000};
    for (size_t alignment : {0, 1, 2, 4, 8, 16, 32, 64, 128, 4096, 65536, 1 << 20}) {
        Heap heap;  // fresh, so the first request lands on a segment's first block
        std::vector<void*> blocks;
        for (size_t size : sizes) {
            blocks.push_back(heap.allocate(size, alignment));
            ASSERT_NE(blocks.back(), nullptr);
            EXPECT_TRUE(alignedTo(blocks.back(), std::max<size_t>(alignment, 8))) << size << " @ " << alignment;
            fillPattern(blocks.back(), size, uint32_t(size));
        }
        for (size_t i = 0; i < blocks.size(); i++)
            EXPECT_TRUE(patternIntact(blocks[i], sizes[i], uint32_t(sizes[i])));
        expectConsistent(heap);
        for (void* memory : blocks)
            EXPECT_TRUE(heap.release(memory));
        expectConsistent(heap, true);
    }
    Heap heap;
    for (auto [size, alignment] :
         {std::pair{size_t(64), 2 * MiB}, {64, 24}, {~size_t(0) - 1000, 8}, {size_t(1) << 60, 8}})
        EXPECT_EQ(heap.allocate(size, alignment), nullptr) << size << " @ " << alignment;
}

TEST(HeapTest, randomSequencesKeepContentAndInvariants) {
    std::mt19937 random(20261121);
    Heap heap;
    struct Slot { void* memory = nullptr; size_t size = 0; uint32_t tag = 0; };
    std::vector<Slot> slots(1500);
    const size_t alignments[] = {8, 8, 8, 16, 16, 32, 64, 4096};
    for (uint32_t step = 1; step <= 30000; step++) {
        if (step % 2000 == 0)
            expectConsistent(heap);
        Slot& slot = slots[random() % slots.size()];
        size_t size = randomSize(random);
        ASSERT_TRUE(!slot.memory || patternIntact(slot.memory, slot.size, slot.tag)) << "step " << step;
        if (slot.memory && random() % 8 != 0) {
            ASSERT_TRUE(heap.release(slot.memory));
            slot = {};
            continue;
        }
        void* memory;
        if (!slot.memory) {
            size_t alignment = alignments[random() % std::size(alignments)];
            memory = heap.allocate(size, alignment);
            ASSERT_TRUE(memory && alignedTo(memory, alignment));
        } else {  // one time in eight, resize instead of releasing
            memory = heap.reallocate(slot.memory, size);
            ASSERT_TRUE(memory && patternIntact(memory, std::min(size, slot.size), slot.tag)) << "step " << step;
        }
        slot = {memory, size, step};
        fillPattern(memory, size, step);
    }
    HeapStatistics s = heap.statistics();
    EXPECT_GT(s.numSegments, 1u);  // the 17 MiB and larger requests had segments of their own
    EXPECT_GT(s.reallocSucc, 0u);
    EXPECT_LE(s.reallocSucc, s.reallocCalls);
    EXPECT_LE(s.peakAllocSize, s.totalSize);
    std::shuffle(slots.begin(), slots.end(), random);
    for (Slot& slot : slots)
        ASSERT_TRUE(!slot.memory || heap.release(slot.memory));
    expectConsistent(heap, true);
}

// In place when shrinking or when the next block is free, moved otherwise.
TEST(HeapTest, reallocateKeepsContent) {
    Heap heap;
    void* blocks[4];
    for (uint32_t i = 0; i < 4; i++)
        fillPattern(blocks[i] = heap.allocate(100, 16), 100, i);
    EXPECT_EQ(heap.reallocate(blocks[0], 40), blocks[0]);
    heap.release(blocks[1]);
    EXPECT_EQ(heap.reallocate(blocks[0], 200), blocks[0]);
    EXPECT_TRUE(patternIntact(blocks[0], 40, 0));
    void* moved = heap.reallocate(blocks[2], 5000);
    EXPECT_TRUE(patternIntact(moved, 100, 2) && alignedTo(moved, 16));
    EXPECT_EQ(heap.statistics().reallocCalls, 3u);
    EXPECT_EQ(heap.statistics().reallocSucc, 2u);
    void* fresh = heap.reallocate(nullptr, 24);
    int onStack = 0;
    EXPECT_EQ(heap.reallocate(&onStack, 64), nullptr);
    EXPECT_FALSE(heap.release(&onStack));
    for (void* memory : {blocks[0], moved, blocks[3], fresh})
        EXPECT_TRUE(heap.release(memory));
    expectConsistent(heap, true);
}

// Threads interleave allocations and releases in one heap; the lock keeps
// every block intact and the block structure sound.
TEST(HeapTest, threadsShareOneHeap) {
    Heap heap;
    std::vector<std::thread> threads;
    std::vector<int32_t> damaged(4, 0);
    for (uint32_t t = 0; t < damaged.size(); t++) {
        threads.emplace_back([&heap, &damaged, t] {
            std::mt19937 random(t);
            std::vector<std::pair<void*, size_t>> live(64, {nullptr, 0});
            for (uint32_t step = 0; step < 40000; step++) {
                auto& [memory, size] = live[random() % live.size()];
                damaged[t] += memory && !patternIntact(memory, size, t);
                heap.release(memory);
                size = random() % 3000;
                memory = heap.allocate(size, 16);
                fillPattern(memory, size, t);
            }
            for (auto& [memory, size] : live)
                heap.release(memory);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(damaged, std::vector<int32_t>(4, 0));
    expectConsistent(heap, true);
}

#ifndef OXA_PLATFORM_ALLOCATOR

TEST(ProcessHeapTest, globalOperatorsAllocateFromTheHeap) {
    ASSERT_TRUE(heapAttached());
    Heap& heap = processHeap();
    auto* single = new int(5);
    auto* array = new char[300];
    EXPECT_TRUE(heap.owns(single) && heap.owns(array));
    delete single;
    delete[] array;
    for (size_t size = 0; size < 100; size++) {
        void* memory = ::operator new(size);
        EXPECT_TRUE(alignedTo(memory, size < 16 ? 8 : 16)) << size;
        ::operator delete(memory);
    }
    auto* widest = new std::max_align_t[3];
    EXPECT_TRUE(alignedTo(widest, alignof(std::max_align_t)));
    delete[] widest;
    void* wide = ::operator new(100, std::align_val_t(256));
    EXPECT_TRUE(alignedTo(wide, 256) && heap.owns(wide));
    ::operator delete(wide, std::align_val_t(256));
    EXPECT_TRUE(heap.verify());
}

// Handing malloc's memory to operator delete is the very case under test.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
TEST(ProcessHeapTest, platformMemoryIsReleasedThroughFree) {
    void* early = std::malloc(100000);  // stands for memory taken before the heap was attached
    ASSERT_FALSE(processHeap().owns(early));
    size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    uint64_t heapReleases = processHeap().statistics().freeCalls;
    ::operator delete(early);
    EXPECT_LT(mallinfo2().uordblks + mallinfo2().hblkhd, before);
    EXPECT_EQ(processHeap().statistics().freeCalls, heapReleases);
}

#endif
