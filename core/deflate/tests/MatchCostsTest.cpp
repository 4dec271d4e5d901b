// MatchCosts: the pricing of a match against its literals, against the sum
// written out, over many generated codes.
#include <gtest/gtest.h>

#include <random>

#include "core/deflate/DeflateBlockCoder.h"
#include "core/deflate/MatchCosts.h"
#include "core/deflate/tests/DeflateTestSupport.h"

TEST(MatchCostsTest, aMatchPaysExactlyWhenItsCodesCostLessThanItsLiterals) {
    std::mt19937 random(31);
    Bytes bytes = randomBytes(300, 32);
    for (int round = 0; round < 200; ++round) {
        // Codes as a block could leave them: every symbol 1 to 15 bits, some
        // unused (0), over counts drawn at random.
        uint32_t literalCounts[deflateFormat::literalLengthSymbols] = {};
        uint32_t distanceCounts[deflateFormat::distanceSymbols] = {};
        for (auto& c : literalCounts)
            c = random() % 4 == 0 ? 0 : random() % (1u << (random() % 16));
        for (auto& c : distanceCounts)
            c = random() % 3 == 0 ? 0 : random() % 5000;
        HuffmanCode literals, distances;
        literals.build(literalCounts, deflateFormat::usableLiteralLengthSymbols, deflateFormat::maxCodeLength);
        distances.build(distanceCounts, deflateFormat::usableDistanceSymbols, deflateFormat::maxCodeLength);
        MatchCosts costs;
        if (round > 0)  // round 0: the fixed code's prices
            costs.setFrom(literals, distances);
        for (int trial = 0; trial < 50; ++trial) {
            int32_t length = trial < 40 ? 3 + int32_t(random() % 10) : 3 + int32_t(random() % 256);
            int32_t distance = 1 + int32_t(random() % deflateFormat::maxDistance);
            int symbol = DeflateBlockCoder::distanceSymbol(distance);
            const uint8_t* at = bytes.data() + random() % 40;
            int32_t literalBits = 0;
            for (int32_t i = 0; i < length; ++i)
                literalBits += costs.literalBits[at[i]];
            bool expected = literalBits > costs.lengthBits[length] + costs.distanceBits[symbol];
            ASSERT_EQ(costs.pays(at, length, symbol), expected) << "round " << round << " length " << length;
        }
    }
}
