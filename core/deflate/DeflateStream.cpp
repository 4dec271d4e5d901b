// DeflateStream: window, lazy match parsing, the search policy, framing.
//
// The parse weighs what the match finder finds. A match is taken only when
// its length and distance codes cost fewer bits than its bytes would as
// literals, priced by the codes of the block sent last (MatchCosts). On the
// codec's payload - small code values, noisy at low frequencies, long runs
// of the silence code above - most short far matches fail that test, and
// leaving them out makes its output about 5 % smaller than taking every
// match of three bytes or more.
//
// How far a search walks follows how well searching pays here:
//  - where matches are dense (at least `denseMatches` of the last 128 tokens),
//    the level's chain limit; elsewhere one candidate, for on sparse data
//    (the payload's noisy coefficients, PCM) deeper candidates rarely give a
//    match that pays;
//  - a quarter of that behind a pending match of the level's good length;
//  - half again for every literal waiting since the last match.
// A search is never shorter than one candidate, and a match of the nice
// length ends it.
#include "core/deflate/DeflateStream.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "core/deflate/Checksum.h"
#include "core/deflate/MatchFinder.h"

using namespace deflateFormat;

namespace {

// Searches go deep where at least this many of the last 128 tokens are
// matches. Measured at each search, with bench/DeflateBench.cpp's inputs: the
// codec's payload has a median of 7 and 12 on the two bench tracks (90th
// percentiles 24 and 38), English text 89, word salad 74, an executable 58.
// At 40 the payload compresses within 4 % of the time one candidate per
// search takes, and the others within 0.1 % of the size deep searches
// everywhere give.
constexpr int32_t denseMatches = 40;
constexpr int32_t historyLength = 128;

int32_t matchesIn(DeflateStream::TokenHistory history) {
    return __builtin_popcountll(uint64_t(history)) + __builtin_popcountll(uint64_t(history >> 64));
}

// Level 9, measured with bench/DeflateBench.cpp: a chain of 64 rather than
// 128 runs 5 to 11 % faster on the codec's payload of both bench tracks, at
// the same size (the dense stretches of the payload walk the whole chain),
// and 30 % faster on English text for 1 % more bytes (1.3 % above zlib level
// 9's there; 0.1 % on the mixed input). A chain of 256 bought 0.4 to 0.7 % on
// text for 20 to 25 % more time than 128. A nice length of 64 rather than 32
// bought 0.1 % on text at no measurable cost.
constexpr int32_t chain9 = 64;
constexpr int32_t good9 = 8;
constexpr int32_t nice9 = 64;

}  // namespace

const DeflateStream::Limits DeflateStream::limitsByLevel[10] = {
    {0, 0, 0, 0},     {4, 4, 8, 4},     {8, 4, 16, 8},     {16, 8, 16, 16},  {24, 8, 24, 32},
    {32, 8, 32, 64},  {48, 8, 32, 128}, {64, 8, 32, 258},  {96, 8, 32, 258}, {chain9, good9, nice9, 258},
};

DeflateStream::DeflateStream(Stream* stream, int32_t framingValue)
    : window(new (std::nothrow) uint8_t[windowSize + 8]()),
      heads(new (std::nothrow) int32_t[MatchFinder::headCount]),
      chain(new (std::nothrow) uint16_t[windowSize]()),
      keys(new (std::nothrow) uint16_t[windowSize]) {
    setOutput(stream);
    setFraming(framingValue);
    if (heads)
        std::fill(heads, heads + MatchFinder::headCount, -1);
}

DeflateStream::~DeflateStream() {
    if (!finished && output)
        finish();
    delete[] window;
    delete[] heads;
    delete[] chain;
    delete[] keys;
}

void DeflateStream::setFraming(int32_t value) {
    framing = value;
    runningChecksum = initialChecksum(framing);
}

void DeflateStream::setOutput(Stream* stream) {
    output = stream;
    writer.setOutput(stream);
}

void DeflateStream::setLevel(int32_t value) { level = std::clamp(value, 1, 9); }

uint32_t DeflateStream::flags() { return output ? StreamOpen | StreamWritable : 0; }

bool DeflateStream::write(const void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (length < 0 || (length > 0 && !buffer) || finished)
        return false;
    if (length == 0)
        return true;
    if (!output || !window || !heads || !chain || !keys || !block.isAllocated())
        return false;
    if (!headerWritten)
        writeHeader();
    if (framing == FramingZlib)
        runningChecksum = adler32Update(runningChecksum, buffer, size_t(length));
    else if (framing != FramingRaw)
        runningChecksum = crc32Update(runningChecksum, buffer, size_t(length));
    inputLength += length;

    const uint8_t* bytes = static_cast<const uint8_t*>(buffer);
    while (count < uint32_t(length)) {
        if (filled == windowSize) {
            parse(false);
            slideWindow();
        }
        int32_t piece = std::min(length - int32_t(count), windowSize - filled);
        std::memcpy(window + filled, bytes + count, size_t(piece));
        filled += piece;
        count += uint32_t(piece);
    }
    return !writer.failed();
}

bool DeflateStream::flush() {
    bool finishedWell = finish();
    return output && output->flush() && finishedWell;
}

bool DeflateStream::finish() {
    if (finished)
        return output && !writer.failed();
    finished = true;
    if (!output || !window || !heads || !chain || !keys || !block.isAllocated())
        return false;
    parse(true);
    if (matchLength >= minMatch) {
        emitMatch(matchDistance, matchLength);
        matchLength = minMatch - 1;
    }
    closeBlock(true);
    writer.alignToByte();
    writeTrailer();
    writer.drain();
    return !writer.failed();
}

void DeflateStream::writeHeader() {
    headerWritten = true;
    if (framing == FramingZlib) {
        const uint8_t header[2] = {0x78, 0xDA};  // 32 KiB window, best compression
        writer.putBytes(header, sizeof header);
    } else if (framing == FramingGzip) {
        const char* name = gzipName.c_str();
        const char* comment = gzipComment.c_str();
        uint8_t flags = uint8_t((*name ? 8 : 0) | (*comment ? 16 : 0));
        const uint8_t header[10] = {0x1F, 0x8B, 8, flags,
                                    uint8_t(gzipTime), uint8_t(gzipTime >> 8),
                                    uint8_t(gzipTime >> 16), uint8_t(gzipTime >> 24),
                                    2, 255};
        writer.putBytes(header, sizeof header);
        if (*name)
            writer.putBytes(name, std::strlen(name) + 1);
        if (*comment)
            writer.putBytes(comment, std::strlen(comment) + 1);
    }
}

void DeflateStream::writeTrailer() {
    uint32_t check = runningChecksum;
    if (framing == FramingZlib) {
        const uint8_t trailer[4] = {uint8_t(check >> 24), uint8_t(check >> 16), uint8_t(check >> 8),
                                    uint8_t(check)};
        writer.putBytes(trailer, sizeof trailer);
    } else if (framing == FramingGzip) {
        uint32_t size = uint32_t(inputLength);
        const uint8_t trailer[8] = {uint8_t(check),      uint8_t(check >> 8), uint8_t(check >> 16),
                                    uint8_t(check >> 24), uint8_t(size),       uint8_t(size >> 8),
                                    uint8_t(size >> 16),  uint8_t(size >> 24)};
        writer.putBytes(trailer, sizeof trailer);
    }
}

void DeflateStream::hashNewPositions(int32_t end) {
    if (end > keyed) {
        MatchFinder::computeKeys(window + keyed, keys + keyed, end - keyed);
        keyed = end;
    }
}

// Literals wait in the window until a match or the end of a parse sends
// them: handed over as a run, they go through one tight loop.
inline void DeflateStream::emitLiteralsUpTo(int32_t end) {
    while (emitted < end) {
        emitted += block.addLiterals(window + emitted, end - emitted);
        if (block.isFull())
            closeBlock(false);
    }
}

inline void DeflateStream::emitMatch(int32_t distance, int32_t length) {
    block.addMatch(distance, length);
    emitted += length;
    if (block.isFull())
        closeBlock(false);
}

void DeflateStream::parse(bool toEnd) {
    const Limits& limits = limitsByLevel[level];
    const int32_t end = toEnd ? filled : filled - lookahead;
    // Positions from here on lack the two bytes after them.
    const int32_t unhashable = std::max(0, filled - minMatch + 1);
    hashNewPositions(unhashable);
    const MatchFinder finder{window, heads, chain, keys, filled, limits.nice};
    // The parse state lives in locals: the token stores could alias any
    // member. A match found at at - 1 waits while pendingLength >= minMatch;
    // literals wait in the window from `emitted`.
    int32_t at = position;
    int32_t pendingLength = matchLength, pendingDistance = matchDistance;
    TokenHistory history = recentTokens;
    int32_t depth = matchesIn(history) >= denseMatches ? limits.chain : 1;
    while (at < end) {
        int32_t candidate = at < unhashable ? finder.insert(at) : -1;
        int32_t length = minMatch - 1, distance = 0;
        if (candidate >= 0 && at - candidate <= maxDistance && pendingLength < limits.lazy &&
            pendingLength < filled - at) {
            int32_t literalRun = std::max(0, at - 1 - emitted);
            int32_t tries = pendingLength >= limits.good ? depth >> 2 : depth;
            tries = std::max(1, tries >> std::min(15, literalRun));
            int32_t found = tries == 1 && at + 8 <= filled ? finder.quickLength(at, candidate) : -1;
            if (found >= 0)
                distance = at - candidate;
            else
                found = finder.longestMatch(at, candidate, tries, distance);
            if (found > std::max(pendingLength, minMatch - 1) &&
                costs.pays(window + at, found, DeflateBlockCoder::distanceSymbol(distance)))
                length = found;
        }
        if (pendingLength < minMatch || length > pendingLength) {
            // Nothing waits, or the new match is longer: it waits, and the
            // byte at at - 1 (if it waited) stays a literal.
            pendingLength = length;
            pendingDistance = distance;
            ++at;
            continue;
        }
        // The waiting match wins: send it with the literals before it, then
        // hash what it covers.
        int32_t literals = at - 1 - emitted;
        history = (literals >= historyLength ? 0 : history << literals) << 1 | 1;
        depth = matchesIn(history) >= denseMatches ? limits.chain : 1;
        emitLiteralsUpTo(at - 1);
        emitMatch(pendingDistance, pendingLength);
        int32_t next = at - 1 + pendingLength;
        int32_t stop = std::min(next, unhashable);
        if (pendingDistance == 1)
            at = finder.insertRun(at, stop);
        while (at + 1 < stop)
            finder.insert(++at);
        at = next;
        pendingLength = minMatch - 1;
    }
    emitLiteralsUpTo(pendingLength >= minMatch ? at - 1 : at);
    position = at;
    matchLength = pendingLength;
    matchDistance = pendingDistance;
    recentTokens = history;
}

void DeflateStream::closeBlock(bool isFinal) {
    int32_t start = emitted - block.coveredLength();
    block.code(writer, isFinal, start >= 0 ? window + start : nullptr);
    block.estimateCosts(costs);
}

// Keeps the last 32 KiB before `position` and what follows it. A block whose
// input would slide out is sent now if it is best stored, since that choice
// needs its bytes.
void DeflateStream::slideWindow() {
    int32_t shift = position - maxDistance;
    if (shift <= 0)
        return;
    int32_t start = emitted - block.coveredLength();
    if (start >= 0 && start < shift && !block.isEmpty() && block.prefersStored(writer.bitPhase()))
        closeBlock(false);
    std::memmove(window, window + shift, size_t(filled - shift));
    std::memmove(chain, chain + shift, sizeof(uint16_t) * size_t(filled - shift));
    std::memmove(keys, keys + shift, sizeof(uint16_t) * size_t(keyed - shift));
    keyed -= shift;
    for (int32_t i = 0; i < MatchFinder::headCount; ++i)
        heads[i] = heads[i] >= shift ? heads[i] - shift : -1;
    filled -= shift;
    position -= shift;
    emitted -= shift;
}
