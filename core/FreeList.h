// FreeList: one of the heap's free lists, the free blocks of one size class
// in address order, each entry a block's address and size. Used by Heap.
//
// The entries live in a small B+tree whose nodes come from a NodePool rather
// than in links inside the free blocks: a block of 8 bytes has no room for
// links, and the heap always wants the lowest-addressed block of at least
// some size, which the tree finds in a few node visits however long the list
// is. Each branch knows the largest size below each child, so that search
// never descends where nothing is large enough.
//
// The tree is ordered from the highest address down, so that the
// lowest-addressed entry, which the heap nearly always takes, is the last
// slot of the last leaf and leaves without moving any other.
//
// Most lists hold a block or two at a time. Up to three entries live in the
// list object itself, one cache line, and the tree is only made for more:
// on HeapBench most list operations touch that line alone instead of a chain
// of list, node and slots (seven entries in two lines measured slower).
// While all entries sit in one array (those slots or a single leaf) the work
// is inline below; the tree proper is in FreeList.cpp.
#pragma once

#include <cstdint>
#include <cstring>

#include "core/NodePool.h"

struct FreeListNode {
    // Per 512-byte node: a leaf holds 31 slots, a branch 21 children.
    static constexpr int32_t leafCapacity = int32_t((NodePool::nodeBytes - 8) / 16);
    static constexpr int32_t branchCapacity = int32_t((NodePool::nodeBytes - 8) / 24);

    struct Slot {
        uint64_t key;  // ~address: the tree's order
        uint64_t size;
    };
    struct Branch {
        uint64_t bounds[branchCapacity];  // a lower bound of each child's keys
        uint64_t largest[branchCapacity];  // the largest size in each child
        FreeListNode* children[branchCapacity];
    };

    int32_t count;
    int32_t level;  // 0 for a leaf
    union {
        Slot slots[leafCapacity];
        Branch branch;
    };

    bool isLeaf() const { return level == 0; }
    // How many slots of a leaf have keys below key: a binary search whose
    // steps are conditional moves, not branches.
    int32_t slotsBelow(uint64_t key) const {
        if (count == 0)
            return 0;
        const Slot* base = slots;
        for (int32_t n = count; n > 1;) {
            int32_t half = n >> 1;
            base = base[half].key < key ? base + half : base;
            n -= half;
        }
        return int32_t(base - slots) + (base->key < key);
    }
    void putSlot(int32_t at, Slot slot) {
        if (at != count)
            std::memmove(slots + at + 1, slots + at, sizeof(Slot) * uint32_t(count - at));
        slots[at] = slot;
        count++;
    }
    void takeSlot(int32_t at) {
        if (--count != at)  // the lowest entry is the last slot: nothing moves
            std::memmove(slots + at, slots + at + 1, sizeof(Slot) * uint32_t(count - at));
    }
};
static_assert(sizeof(FreeListNode) <= NodePool::nodeBytes);

class alignas(64) FreeList {
public:
    struct Entry {
        uint64_t address = 0;  // 0: no entry
        uint64_t size = 0;
    };
    using Slot = FreeListNode::Slot;

    constexpr FreeList() : small{} {}
    FreeList(const FreeList&) = delete;
    FreeList& operator=(const FreeList&) = delete;

    bool empty() const { return count == 0; }
    uint64_t length() const { return count; }
    uint64_t largest() const;  // 0 when empty

    // Fails, leaving the list as it was, when the pool has no node to give
    // (or, at four billion entries, no count to give).
    bool insert(NodePool& pool, uint64_t address, uint64_t size) {
        searchHint = 0;
        if (!flat() || count == flatCapacity())
            return insertDeep(pool, address, size);
        Slot* slots = flatSlots();
        int32_t at = int32_t(count);
        for (; at > 0 && slots[at - 1].key > ~address; at--)
            slots[at] = slots[at - 1];
        slots[at] = {~address, size};
        setCount(count + 1);
        return true;
    }

    // Fails when no entry has this address. Right after lowest() found it,
    // the entry usually goes without a search.
    bool erase(NodePool& pool, uint64_t address) {
        int32_t at = int32_t(searchHint) - 1;
        searchHint = 0;
        if (!flat() || (root && count <= 2))  // a leaf about to shrink into the inline slots
            return eraseDeep(pool, address, at);
        Slot* slots = flatSlots();
        if (at < 0 || slots[at].key != ~address)
            for (at = int32_t(count) - 1; at >= 0 && slots[at].key != ~address; at--) {
            }
        if (at < 0)
            return false;
        for (setCount(count - 1); uint32_t(at) < count; at++)
            slots[at] = slots[at + 1];
        return true;
    }

    // Moves an entry to a new address and size in place. The caller promises
    // that no other entry lies between the two addresses, so the order holds.
    // Fails when no entry has the old address.
    bool replace(uint64_t address, uint64_t newAddress, uint64_t newSize);

    // The lowest-addressed entry at or above `from` whose size is at least
    // minSize; address 0 when there is none. Remembers where it was found,
    // for an erase that follows.
    Entry lowest(uint64_t minSize, uint64_t from) {
        searchHint = 0;
        if (!flat() || from)
            return lowestDeep(minSize, from);
        const Slot* slots = flatSlots();
        for (int32_t i = int32_t(count) - 1; i >= 0; i--) {
            if (slots[i].size >= minSize) {
                searchHint = uint32_t(i) + 1;
                if (root)
                    lastLeaf = root;
                return {~slots[i].key, slots[i].size};
            }
        }
        return {};
    }

    // Checks the tree's order, bounds and sizes and hands every entry, in
    // address order, to visit (which may veto by returning false).
    bool verify(bool (*visit)(void* context, Entry entry), void* context) const;

private:
    static constexpr uint32_t smallCapacity = 3;

    // Flat: every entry in one array, the inline slots or the one leaf.
    bool flat() const { return !root || root->isLeaf(); }
    Slot* flatSlots() { return root ? root->slots : small; }
    uint32_t flatCapacity() const { return root ? FreeListNode::leafCapacity : smallCapacity; }
    void setCount(uint32_t n) {
        count = n;
        if (root)
            root->count = int32_t(n);
    }

    bool insertDeep(NodePool& pool, uint64_t address, uint64_t size);
    bool eraseDeep(NodePool& pool, uint64_t address, int32_t hint);
    Entry lowestDeep(uint64_t minSize, uint64_t from);

    FreeListNode* root = nullptr;  // the tree, or null while `small` holds the entries
    uint32_t count = 0;
    // Where the last search found its entry, until the list changes: 1 + a
    // slot of `small`, or of lastLeaf in the tree; 0 for none (so that a new
    // list is all zero, and the process heap costs the program file nothing).
    uint32_t searchHint = 0;
    union {
        Slot small[smallCapacity];  // while root is null: key order, like a leaf
        FreeListNode* lastLeaf;  // while root is not
    };
};
static_assert(sizeof(FreeList) == 64, "one cache line per list");
