// FreeList: random inserts, erases, moves and searches checked against an
// ordered map, with the tree's own invariants verified along the way.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "core/FreeList.h"

namespace {

using Reference = std::map<uint64_t, uint64_t>;  // address -> size

// The lowest address at or above from with a size of at least minSize.
FreeList::Entry referenceLowest(const Reference& reference, uint64_t minSize, uint64_t from) {
    for (auto it = reference.lower_bound(from); it != reference.end(); ++it)
        if (it->second >= minSize)
            return {it->first, it->second};
    return {};
}

bool sameEntries(const FreeList& list, const Reference& reference) {
    struct Walk {
        Reference::const_iterator next, end;
    } walk{reference.begin(), reference.end()};
    auto visit = [](void* context, FreeList::Entry entry) {
        auto* w = static_cast<Walk*>(context);
        if (w->next == w->end || w->next->first != entry.address || w->next->second != entry.size)
            return false;
        ++w->next;
        return true;
    };
    return list.verify(visit, &walk) && walk.next == walk.end && list.length() == reference.size();
}

}  // namespace

// Each round grows the list to about `population` entries and churns it: the
// small ones keep the entries in the list's own slots or a single leaf,
// moving between the two, the large ones build trees three and four levels
// deep. Addresses are multiples of 8 in a narrow range, so neighbours
// collide and moves squeeze between them.
TEST(FreeListTest, matchesAnOrderedMap) {
    for (uint64_t population : {1, 5, 20, 40, 3000, 20000}) {
        SCOPED_TRACE(population);
        std::mt19937_64 random(population);
        NodePool pool;
        FreeList list;
        Reference reference;
        uint64_t space = population * 64 + 64;
        auto someAddress = [&] { return 8 + (random() % space) * 8; };
        for (int32_t step = 0; step < 60000; step++) {
            uint64_t address = someAddress();
            uint64_t size = 8 << (random() % 12);
            int32_t action = int32_t(random() % 4);
            if (reference.size() < population / 2)
                action = 0;
            if (action == 0) {  // insert
                bool absent = !reference.count(address);
                if (absent)
                    reference[address] = size;
                ASSERT_TRUE(!absent || list.insert(pool, address, size));
            } else if (action == 1) {  // erase, present or not
                auto it = reference.lower_bound(address);
                if (it != reference.end() && random() % 2)
                    address = it->first;
                ASSERT_EQ(list.erase(pool, address), reference.erase(address) == 1);
            } else if (action == 2 && !reference.empty()) {  // move within the gap to the neighbours
                auto it = reference.lower_bound(address);
                if (it == reference.end())
                    --it;
                uint64_t low = it == reference.begin() ? 8 : std::prev(it)->first + 8;
                uint64_t high = std::next(it) == reference.end() ? it->first + 4096 : std::next(it)->first - 8;
                uint64_t moved = low + (random() % ((high - low) / 8 + 1)) * 8;
                ASSERT_TRUE(list.replace(it->first, moved, size));
                reference.erase(it);
                reference[moved] = size;
            } else {  // search
                uint64_t minSize = 8 << (random() % 13);
                uint64_t from = random() % 4 ? 0 : address;
                FreeList::Entry found = list.lowest(minSize, from);
                FreeList::Entry expected = referenceLowest(reference, minSize, from);
                ASSERT_EQ(found.address, expected.address) << "step " << step;
                ASSERT_EQ(found.size, expected.size);
                if (found.address && random() % 2) {  // the heap's usual next step
                    ASSERT_TRUE(list.erase(pool, found.address));
                    reference.erase(found.address);
                }
            }
            if (step % 997 == 0 || reference.size() < 50) {
                ASSERT_TRUE(sameEntries(list, reference)) << "step " << step;
            }
        }
        while (!reference.empty()) {
            ASSERT_TRUE(list.erase(pool, reference.begin()->first));
            reference.erase(reference.begin());
        }
        EXPECT_TRUE(list.empty());
        EXPECT_EQ(list.largest(), 0u);
    }
}
