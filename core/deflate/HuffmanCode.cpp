// HuffmanCode: two-queue Huffman construction over sorted counts, then a
// Kraft-sum repair that caps the depth, then canonical code assignment.
#include "core/deflate/HuffmanCode.h"

#include <algorithm>
#include <cstring>

namespace {

struct Leaf {
    uint32_t count;
    uint16_t symbol;
};

// Depth of every leaf of the Huffman tree over leaves sorted by count.
// Internal nodes are made in order of increasing weight, so one pass from the
// root down gives every depth.
void treeDepths(const Leaf* leaves, int n, int* depths) {
    uint64_t weight[2 * HuffmanCode::maxSymbols];
    int parent[2 * HuffmanCode::maxSymbols];
    for (int i = 0; i < n; ++i)
        weight[i] = leaves[i].count;
    int nextLeaf = 0, nextInner = n;
    auto takeSmallest = [&](int made) {
        if (nextLeaf < n && (nextInner >= made || weight[nextLeaf] <= weight[nextInner]))
            return nextLeaf++;
        return nextInner++;
    };
    for (int made = n; made < 2 * n - 1; ++made) {
        int a = takeSmallest(made);
        int b = takeSmallest(made);
        weight[made] = weight[a] + weight[b];
        parent[a] = parent[b] = made;
    }
    int root = 2 * n - 2;
    int nodeDepth[2 * HuffmanCode::maxSymbols];
    nodeDepth[root] = 0;
    for (int node = root - 1; node >= 0; --node)
        nodeDepth[node] = nodeDepth[parent[node]] + 1;
    std::memcpy(depths, nodeDepth, sizeof(int) * size_t(n));
}

// Moves leaves deeper than maxLength up to it, then restores the Kraft sum by
// pushing one leaf from the deepest level back under a shallower one.
void capDepths(int* lengthCounts, int deepest, int maxLength) {
    for (int length = maxLength + 1; length <= deepest; ++length) {
        lengthCounts[maxLength] += lengthCounts[length];
        lengthCounts[length] = 0;
    }
    uint64_t kraft = 0;
    for (int length = 1; length <= maxLength; ++length)
        kraft += uint64_t(lengthCounts[length]) << (maxLength - length);
    for (; kraft > (uint64_t(1) << maxLength); --kraft) {
        --lengthCounts[maxLength];
        for (int length = maxLength - 1; length > 0; --length) {
            if (lengthCounts[length]) {
                --lengthCounts[length];
                lengthCounts[length + 1] += 2;
                break;
            }
        }
    }
}

}  // namespace

void HuffmanCode::build(const uint32_t* counts, int symbolCount, int maxLength) {
    Leaf leaves[maxSymbols];
    int n = 0;
    for (int s = 0; s < symbolCount; ++s)
        if (counts[s])
            leaves[n++] = {counts[s], uint16_t(s)};
    for (int s = 0; n < 2; ++s)
        if (!counts[s])
            leaves[n++] = {0, uint16_t(s)};
    std::sort(leaves, leaves + n, [](const Leaf& a, const Leaf& b) {
        return a.count != b.count ? a.count < b.count : a.symbol > b.symbol;
    });

    int depths[maxSymbols];
    treeDepths(leaves, n, depths);
    int lengthCounts[2 * maxSymbols] = {};
    int deepest = 0;
    for (int i = 0; i < n; ++i) {
        ++lengthCounts[depths[i]];
        deepest = std::max(deepest, depths[i]);
    }
    if (deepest > maxLength)
        capDepths(lengthCounts, deepest, maxLength);

    // The rarest leaves take the longest codes.
    std::memset(lengths, 0, sizeof lengths);
    int leaf = 0;
    for (int length = std::min(deepest, maxLength); length > 0; --length)
        for (int k = 0; k < lengthCounts[length]; ++k)
            lengths[leaves[leaf++].symbol] = uint8_t(length);
    assignCodes(symbolCount);
}

void HuffmanCode::assignCodes(int symbolCount) {
    int lengthCounts[16] = {};
    for (int s = 0; s < symbolCount; ++s)
        ++lengthCounts[lengths[s]];
    lengthCounts[0] = 0;
    uint32_t next[16];
    uint32_t code = 0;
    for (int length = 1; length < 16; ++length) {
        code = (code + uint32_t(lengthCounts[length - 1])) << 1;
        next[length] = code;
    }
    for (int s = 0; s < symbolCount; ++s) {
        int length = lengths[s];
        if (!length) {
            codes[s] = 0;
            continue;
        }
        uint32_t value = next[length]++;
        uint32_t reversed = 0;
        for (int bit = 0; bit < length; ++bit, value >>= 1)
            reversed = (reversed << 1) | (value & 1);
        codes[s] = uint16_t(reversed);
    }
}
