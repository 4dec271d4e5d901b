// NodePool: nodes from 64 KiB anonymous chunks, recycled through a spare list.
#include "core/NodePool.h"

#include <sys/mman.h>

namespace {
// One chunk holds 127 nodes behind a node-sized slot for the chunk link. A
// heap with a thousand free blocks needs a few hundred nodes, so one or two
// chunks serve most processes.
constexpr uint64_t chunkBytes = 64 * 1024;
static_assert(chunkBytes % NodePool::nodeBytes == 0);
}  // namespace

NodePool::~NodePool() {
    while (chunks) {
        void* previous = *static_cast<void**>(chunks);
        munmap(chunks, chunkBytes);
        chunks = previous;
    }
}

void* NodePool::take() {
    if (!spare && !grow())
        return nullptr;
    Spare* node = spare;
    spare = node->next;
    return node;
}

void NodePool::give(void* node) {
    auto* returned = static_cast<Spare*>(node);
    returned->next = spare;
    spare = returned;
}

bool NodePool::grow() {
    void* memory = mmap(nullptr, chunkBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return false;
    *static_cast<void**>(memory) = chunks;
    chunks = memory;
    mapped += chunkBytes;
    // Listed from the top down, so that nodes are handed out in address order.
    char* base = static_cast<char*>(memory);
    for (uint64_t offset = chunkBytes - nodeBytes; offset >= nodeBytes; offset -= nodeBytes)
        give(base + offset);
    return true;
}
