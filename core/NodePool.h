// NodePool: fixed-size nodes carved from anonymous mappings of their own.
// The heap keeps its free-list index here: it cannot allocate from itself
// while it is rearranging its lists. Not thread-safe; the heap lock guards it.
#pragma once

#include <cstdint>

class NodePool {
public:
    static constexpr uint64_t nodeBytes = 512;

    constexpr NodePool() = default;
    NodePool(const NodePool&) = delete;
    NodePool& operator=(const NodePool&) = delete;
    ~NodePool();  // unmaps every chunk, nodes in use or not

    // A node's worth of memory, or null when no more can be mapped.
    void* take();
    void give(void* node);
    uint64_t mappedBytes() const { return mapped; }

private:
    bool grow();

    struct Spare {
        Spare* next;
    };
    Spare* spare = nullptr;
    void* chunks = nullptr;  // each chunk's first word points to the one mapped before it
    uint64_t mapped = 0;
};
