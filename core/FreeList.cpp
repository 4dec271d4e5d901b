// FreeList: what FreeList.h does not inline: moving between the inline slots
// and the tree, and the B+tree itself.
//
// Leaves hold slots in key order (key = ~address). A branch holds, for each
// child, a lower bound of the child's keys (above every key of the child
// before it) and the exact largest size below the child. Bounds may lag
// behind erased entries, and a branch's first bound steers nothing. Inserts
// split full nodes on the way down, so a split never climbs back up; erases
// fold a thin node into a neighbour when the two fit in one.
#include "core/FreeList.h"

#include <algorithm>

namespace {

using Node = FreeListNode;
using Slot = FreeListNode::Slot;
using Entry = FreeList::Entry;

constexpr int32_t leafCapacity = Node::leafCapacity;
constexpr int32_t branchCapacity = Node::branchCapacity;
// A node this thin is folded into a neighbour when both fit in one node.
constexpr int32_t thinNode = 5;
// Deep enough for any heap: every level multiplies the entries by at least
// about four.
constexpr int32_t maxHeight = 32;
constexpr uint64_t noLimit = ~uint64_t(0);

struct PathStep {
    Node* node;
    int32_t child;
};

Entry entryOf(const Slot& slot) { return {~slot.key, slot.size}; }

Node* newNode(NodePool& pool, int32_t level) {
    auto* node = static_cast<Node*>(pool.take());
    if (node) {
        node->count = 0;
        node->level = level;
    }
    return node;
}

int32_t capacityOf(const Node* node) { return node->isLeaf() ? leafCapacity : branchCapacity; }

uint64_t sizeAt(const Node* node, int32_t i) { return node->isLeaf() ? node->slots[i].size : node->branch.largest[i]; }

uint64_t largestIn(const Node* node) {
    uint64_t largest = 0;
    for (int32_t i = 0; i < node->count; i++)
        largest = std::max(largest, sizeAt(node, i));
    return largest;
}

// Whether the node still holds a size of at least `size`, so that its
// parent's record of its largest size stands.
bool holdsAtLeast(const Node* node, uint64_t size) {
    for (int32_t i = node->count - 1; i >= 0; i--)
        if (sizeAt(node, i) >= size)
            return true;
    return false;
}

// Branch: the child whose range holds key (the first one for keys below all;
// the first bound steers nothing).
int32_t childFor(const Node* node, uint64_t key) {
    if (key == noLimit)
        return node->count - 1;
    const uint64_t* bounds = node->branch.bounds;
    int32_t child = 0;
    for (int32_t n = node->count; n > 1;) {  // the last bound not above key
        int32_t half = n >> 1;
        child = bounds[child + half] <= key ? child + half : child;
        n -= half;
    }
    return child;
}

// Moves a branch's children from `at` on by one place, up (+1) or down (-1).
void shiftChildren(Node* node, int32_t at, int32_t by) {
    Node::Branch& branch = node->branch;
    uint32_t moved = uint32_t(node->count - at);
    std::memmove(branch.bounds + at + by, branch.bounds + at, sizeof(uint64_t) * moved);
    std::memmove(branch.largest + at + by, branch.largest + at, sizeof(uint64_t) * moved);
    std::memmove(branch.children + at + by, branch.children + at, sizeof(Node*) * moved);
    node->count += by;
}

void putChild(Node* parent, int32_t at, uint64_t bound, Node* child) {
    shiftChildren(parent, at, 1);
    parent->branch.bounds[at] = bound;
    parent->branch.largest[at] = largestIn(child);
    parent->branch.children[at] = child;
}

void takeChild(Node* parent, int32_t at) { shiftChildren(parent, at + 1, -1); }

uint64_t firstBound(const Node* node) { return node->isLeaf() ? node->slots[0].key : node->branch.bounds[0]; }

// Appends slots [from, from + n) of source to target (of the same level).
void appendSlots(Node* target, const Node* source, int32_t from, int32_t n) {
    if (source->isLeaf()) {
        std::memcpy(target->slots + target->count, source->slots + from, sizeof(Slot) * uint32_t(n));
    } else {
        const Node::Branch& s = source->branch;
        Node::Branch& t = target->branch;
        std::memcpy(t.bounds + target->count, s.bounds + from, sizeof(uint64_t) * uint32_t(n));
        std::memcpy(t.largest + target->count, s.largest + from, sizeof(uint64_t) * uint32_t(n));
        std::memcpy(t.children + target->count, s.children + from, sizeof(Node*) * uint32_t(n));
    }
    target->count += n;
}

// Splits the full child i of parent into two halves; parent has room.
bool splitChild(NodePool& pool, Node* parent, int32_t i) {
    Node* left = parent->branch.children[i];
    Node* right = newNode(pool, left->level);
    if (!right)
        return false;
    int32_t keep = left->count / 2;
    appendSlots(right, left, keep, left->count - keep);
    left->count = keep;
    parent->branch.largest[i] = largestIn(left);
    putChild(parent, i + 1, firstBound(right), right);
    return true;
}

// Folds child i of parent into a neighbour when the two fit in one node, and
// returns the index of the child that now holds child i's entries.
int32_t foldThin(NodePool& pool, Node* parent, int32_t i) {
    Node** children = parent->branch.children;
    auto fits = [children](int32_t a) { return children[a]->count + children[a + 1]->count <= capacityOf(children[a]); };
    int32_t left;
    if (i > 0 && fits(i - 1))
        left = i - 1;
    else if (i + 1 < parent->count && fits(i))
        left = i;
    else
        return i;
    Node* target = children[left];
    Node* right = children[left + 1];
    int32_t seam = target->count;
    appendSlots(target, right, 0, right->count);
    // A branch's first bound may lag below the parent's; inside target it
    // becomes a real separator and must be the tighter of the two.
    if (!target->isLeaf())
        target->branch.bounds[seam] = std::max(target->branch.bounds[seam], parent->branch.bounds[left + 1]);
    pool.give(right);
    takeChild(parent, left + 1);
    parent->branch.largest[left] = largestIn(target);
    return left;
}

struct Found {
    Node* leaf;
    int32_t index;
};

// The highest key not above limit whose size is at least minSize.
Found highestIn(Node* node, uint64_t minSize, uint64_t limit) {
    if (node->isLeaf()) {
        int32_t i = limit == noLimit ? node->count - 1 : node->slotsBelow(limit + 1) - 1;
        for (; i >= 0; i--)
            if (node->slots[i].size >= minSize)
                return {node, i};
        return {nullptr, 0};
    }
    // Only the child holding limit can come back empty-handed: in the ones
    // before it every key lies below limit, and the largest sizes are exact.
    for (int32_t i = childFor(node, limit); i >= 0; i--) {
        if (node->branch.largest[i] >= minSize) {
            Found found = highestIn(node->branch.children[i], minSize, limit);
            if (found.leaf)
                return found;
        }
    }
    return {nullptr, 0};
}

// Walks from the root to the leaf whose range holds key, noting the way.
Node* descend(Node* root, uint64_t key, PathStep* path, int32_t& depth) {
    Node* node = root;
    depth = 0;
    while (!node->isLeaf()) {
        int32_t i = childFor(node, key);
        path[depth++] = {node, i};
        node = node->branch.children[i];
    }
    return node;
}

struct VerifyState {
    bool (*visit)(void*, Entry);
    void* context;
    uint64_t entries;
};

// Checks the subtree under node: every key in [low, high), `level` as
// expected, its largest size returned through largest; visits its entries
// from the lowest address up, that is from the last slot down.
bool verifyNode(const Node* node, int32_t level, uint64_t low, uint64_t high, uint64_t& largest, VerifyState& state) {
    if (node->level != level || node->count < 1 || node->count > capacityOf(node))
        return false;
    largest = 0;
    for (int32_t i = node->count - 1; i >= 0; i--) {
        uint64_t bound = i + 1 == node->count ? high : level ? node->branch.bounds[i + 1] : node->slots[i + 1].key;
        if (level == 0) {
            const Slot& slot = node->slots[i];
            if (slot.key < low || slot.key >= bound || !state.visit(state.context, entryOf(slot)))
                return false;
            state.entries++;
            largest = std::max(largest, slot.size);
            continue;
        }
        // The first bound steers nothing and may lag below low.
        uint64_t childLow = i == 0 ? low : node->branch.bounds[i];
        uint64_t below = 0;
        if (childLow < low || childLow >= bound || node->branch.bounds[i] >= bound ||
            !verifyNode(node->branch.children[i], level - 1, childLow, bound, below, state) ||
            below != node->branch.largest[i])
            return false;
        largest = std::max(largest, below);
    }
    return true;
}

}  // namespace

uint64_t FreeList::largest() const {
    if (root)
        return largestIn(root);
    uint64_t largest = 0;
    for (uint32_t i = 0; i < count; i++)
        largest = std::max(largest, small[i].size);
    return largest;
}

bool FreeList::insertDeep(NodePool& pool, uint64_t address, uint64_t size) {
    uint64_t key = ~address;
    if (count == ~uint32_t(0))
        return false;
    if (!root) {  // the inline slots are full: they become the first leaf
        Node* leaf = newNode(pool, 0);
        if (!leaf)
            return false;
        std::memcpy(leaf->slots, small, sizeof small);
        leaf->count = int32_t(count);
        root = leaf;
        lastLeaf = nullptr;
    } else if (root->count == capacityOf(root)) {
        if (root->level + 1 >= maxHeight)
            return false;
        Node* top = newNode(pool, root->level + 1);
        if (!top)
            return false;
        putChild(top, 0, firstBound(root), root);
        if (!splitChild(pool, top, 0)) {
            pool.give(top);
            return false;
        }
        root = top;
    }
    Node* node = root;
    while (!node->isLeaf()) {
        Node::Branch& branch = node->branch;
        int32_t i = childFor(node, key);
        Node* child = branch.children[i];
        if (child->count == capacityOf(child)) {
            if (!splitChild(pool, node, i))
                return false;
            i += key >= branch.bounds[i + 1];
        }
        branch.bounds[i] = std::min(branch.bounds[i], key);
        branch.largest[i] = std::max(branch.largest[i], size);
        node = branch.children[i];
    }
    node->putSlot(node->slotsBelow(key), {key, size});
    count++;
    return true;
}

bool FreeList::eraseDeep(NodePool& pool, uint64_t address, int32_t hint) {
    uint64_t key = ~address;
    Node* leaf = hint >= 0 ? lastLeaf : nullptr;
    // The entry just found by lowest(), in a leaf that stays full enough and
    // keeps its largest size: nothing above the leaf changes.
    if (leaf && leaf->slots[hint].key == key && (leaf == root ? count > 2 : leaf->count > thinNode)) {
        Slot slot = leaf->slots[hint];
        leaf->takeSlot(hint);
        if (leaf == root || holdsAtLeast(leaf, slot.size)) {
            count--;
            return true;
        }
        leaf->putSlot(hint, slot);  // undone: the full way below sees to the sizes
    }
    PathStep path[maxHeight];
    int32_t depth;
    leaf = descend(root, key, path, depth);
    int32_t at = leaf->slotsBelow(key);
    if (at == leaf->count || leaf->slots[at].key != key)
        return false;
    uint64_t erasedSize = leaf->slots[at].size;
    leaf->takeSlot(at);
    count--;
    // Upwards: drop emptied children, fold thin ones, and refresh each
    // parent's largest size until a level sees no change.
    bool reshaped = false;
    while (depth > 0) {
        auto [parent, i] = path[--depth];
        Node* child = parent->branch.children[i];
        if (child->count == 0) {
            pool.give(child);
            takeChild(parent, i);
            reshaped = true;
            continue;
        }
        if (child->count < thinNode && parent->count > 1) {
            int32_t before = parent->count;
            i = foldThin(pool, parent, i);
            reshaped |= parent->count != before;
        }
        uint64_t& largest = parent->branch.largest[i];
        if (!reshaped && (largest != erasedSize || holdsAtLeast(parent->branch.children[i], erasedSize)))
            break;
        largest = largestIn(parent->branch.children[i]);
    }
    while (!root->isLeaf() && root->count == 1) {
        Node* only = root->branch.children[0];
        pool.give(root);
        root = only;
    }
    // Down to a leaf of one entry at most: back into the inline slots. (Not
    // at three, so that a list going to and fro around it does not churn.)
    if (root->isLeaf() && root->count <= 1) {
        Node* last = root;
        root = nullptr;
        std::memcpy(small, last->slots, sizeof(Slot) * uint32_t(last->count));
        pool.give(last);
    }
    return true;
}

bool FreeList::replace(uint64_t address, uint64_t newAddress, uint64_t newSize) {
    uint64_t key = ~address;
    uint64_t newKey = ~newAddress;
    searchHint = 0;
    if (!root) {
        for (uint32_t i = 0; i < count; i++) {
            if (small[i].key == key) {
                small[i] = {newKey, newSize};
                return true;
            }
        }
        return false;
    }
    PathStep path[maxHeight];
    int32_t depth;
    Node* leaf = descend(root, key, path, depth);
    int32_t at = leaf->slotsBelow(key);
    if (at == leaf->count || leaf->slots[at].key != key)
        return false;
    uint64_t oldSize = leaf->slots[at].size;
    leaf->slots[at] = {newKey, newSize};
    // Bounds: a lower key lowers the child's bound, a higher one may pass a
    // lagging bound of the next child, which then moves up behind it.
    while (depth > 0) {
        auto [parent, i] = path[--depth];
        Node::Branch& branch = parent->branch;
        branch.bounds[i] = std::min(branch.bounds[i], newKey);
        if (i + 1 < parent->count && branch.bounds[i + 1] <= newKey)
            branch.bounds[i + 1] = newKey + 1;
        if (newSize > branch.largest[i])
            branch.largest[i] = newSize;
        else if (newSize < oldSize && branch.largest[i] == oldSize)
            branch.largest[i] = largestIn(branch.children[i]);
    }
    return true;
}

FreeList::Entry FreeList::lowestDeep(uint64_t minSize, uint64_t from) {
    uint64_t limit = ~from;
    if (!root) {
        for (int32_t i = int32_t(count) - 1; i >= 0; i--) {
            if (small[i].key <= limit && small[i].size >= minSize) {
                searchHint = uint32_t(i) + 1;
                return entryOf(small[i]);
            }
        }
        return {};
    }
    Found found = highestIn(root, minSize, limit);
    if (!found.leaf)
        return {};
    lastLeaf = found.leaf;
    searchHint = uint32_t(found.index) + 1;
    return entryOf(found.leaf->slots[found.index]);
}

bool FreeList::verify(bool (*visit)(void*, Entry), void* context) const {
    if (!root) {
        if (count > smallCapacity)
            return false;
        for (int32_t i = int32_t(count) - 1; i >= 0; i--)
            if ((i > 0 && small[i - 1].key >= small[i].key) || !visit(context, entryOf(small[i])))
                return false;
        return true;
    }
    VerifyState state{visit, context, 0};
    uint64_t largest = 0;
    return root->count > 1 && verifyNode(root, root->level, 0, noLimit, largest, state) && state.entries == count;
}
