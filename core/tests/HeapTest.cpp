// Heap: placement, alignment, merging and statistics on private instances, and
// the global operators on the process heap (unless the build keeps the
// platform allocator).
#include <gtest/gtest.h>

#include <malloc.h>

#include <algorithm>
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

TEST(HeapTest, listIndexAtBoundaries) {
    const std::pair<uint64_t, int32_t> fixed[] = {{0, 0}, {1, 1}, {4, 1}, {5, 2}, {508, 127}, {509, 128},
        {512, 128}, {513, 129}, {520, 129}, {521, 130}, {1024, 192}, {1025, 193}, {4096, 320},
        {(1u << 30) - 1, 1472}, {1u << 30, 1535}, {uint64_t(1) << 40, 1535}};
    for (auto [size, list] : fixed)
        EXPECT_EQ(Heap::listIndex(size), list) << "size " << size;
    // The rule itself: lists of 4 bytes up to 512, then 64 lists per power of
    // two up to 1 GiB; a size goes to the first list whose bound is not below it.
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

TEST(HeapTest, releasingInAnyOrderLeavesOneFreeBlockPerSegment) {
    for (const char* order : {"forward", "backward", "shuffled"}) {
        SCOPED_TRACE(order);
        std::mt19937 random(7);
        Heap heap;
        std::vector<void*> blocks;
        for (int32_t i = 0; i < 4000; i++)
            blocks.push_back(heap.allocate(i % 1000 == 999 ? 20 * MiB : randomSize(random) % 9000, 8));
        if (order[0] == 'b')
            std::reverse(blocks.begin(), blocks.end());
        if (order[0] == 's')
            std::shuffle(blocks.begin(), blocks.end(), random);
        for (void* memory : blocks)
            ASSERT_TRUE(heap.release(memory));
        EXPECT_GE(heap.statistics().numSegments, 5u);
        expectConsistent(heap, true);
    }
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
