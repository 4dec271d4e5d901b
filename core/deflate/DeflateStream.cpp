// DeflateStream: window, hash chains, lazy match parsing, framing.
#include "core/deflate/DeflateStream.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "core/Hash32.h"
#include "core/deflate/Checksum.h"

using namespace deflateFormat;

namespace {

// A three-byte match farther back than this costs about as much as three
// literals and breaks up literal runs. 256 was measured best on coded audio
// blocks (whose neighbouring channels lie 2052 bytes apart) and on text.
constexpr int32_t tooFarForMinimalMatch = 256;

// After this many literals in a row the data looks incompressible: searches
// then try only the newest candidate. With 8192 hash heads most of a chain
// in such data is hash collisions, and walking it was most of the time spent
// on PCM, for well under 0.1 % of its size.
constexpr int32_t literalRunForQuickSearch = 32;

uint32_t load32(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
}

uint16_t load16(const uint8_t* p) {
    uint16_t v;
    std::memcpy(&v, p, 2);
    return v;
}

uint64_t load64(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the match finder packs little-endian words");

// Bytes equal at the start of a and b, at most maxLength.
int32_t commonLength(const uint8_t* a, const uint8_t* b, int32_t maxLength) {
    int32_t length = 0;
    for (; length + 8 <= maxLength; length += 8) {
        uint64_t difference = load64(a + length) ^ load64(b + length);
        if (difference)
            return length + (__builtin_ctzll(difference) >> 3);
    }
    while (length < maxLength && a[length] == b[length])
        ++length;
    return length;
}

}  // namespace

// Level 9 was tuned with bench/DeflateBench.cpp on coded audio blocks and on
// text mixed with PCM: from there, longer chains bought under 0.3 % in size
// for a third more time.
const DeflateStream::Limits DeflateStream::limitsByLevel[10] = {
    {0, 0, 0, 0},     {4, 4, 8, 4},     {8, 4, 16, 8},     {16, 8, 16, 16},  {24, 8, 24, 32},
    {32, 8, 32, 64},  {48, 8, 32, 128}, {64, 8, 32, 258},  {96, 8, 32, 258}, {128, 8, 32, 258},
};

DeflateStream::DeflateStream(Stream* stream, int32_t framingValue)
    : window(new (std::nothrow) uint8_t[windowSize + 8]()),
      heads(new (std::nothrow) int32_t[hashHeads]),
      chain(new (std::nothrow) uint16_t[windowSize]()) {
    setOutput(stream);
    setFraming(framingValue);
    if (heads)
        std::fill(heads, heads + hashHeads, -1);
}

DeflateStream::~DeflateStream() {
    if (!finished && output)
        finish();
    delete[] window;
    delete[] heads;
    delete[] chain;
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
    if (!output || !window || !heads || !chain || !block.isAllocated())
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
    if (!output || !window || !heads || !chain || !block.isAllocated())
        return false;
    parse(true);
    if (hasPending) {
        if (matchLength >= minMatch)
            emitMatch(matchDistance, matchLength);
        else
            emitLiteral(position - 1);
        hasPending = false;
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

uint32_t DeflateStream::hashKey(int32_t at) const {
    return hash32Word(load32(window + at) & 0xFFFFFF) & (hashHeads - 1);
}

int32_t DeflateStream::insert(int32_t at, uint32_t key) {
    int32_t previous = heads[key];
    heads[key] = at;
    int32_t distance = at - previous;
    chain[at] = uint16_t(previous >= 0 && distance <= maxDistance ? distance : 0);
    return previous;
}

int32_t DeflateStream::longestMatch(int32_t at, int32_t candidate, int32_t best,
                                    int32_t& distance) const {
    const Limits& limits = limitsByLevel[level];
    int32_t tries = best >= limits.good ? limits.chain >> 2 : limits.chain;
    if (literalRun >= literalRunForQuickSearch)
        tries = 1;
    int32_t maxLength = std::min(maxMatch, filled - at);
    if (best >= maxLength)
        return best;
    int32_t nice = std::min(limits.nice, maxLength);
    int32_t oldest = std::max(0, at - maxDistance);
    // Locals: the compiler cannot keep members in registers across the
    // writes below.
    const uint8_t* const bytes = window;
    const uint16_t* const links = chain;
    const uint8_t* const scan = bytes + at;
    const uint32_t head = load32(scan) & 0xFFFFFF;
    uint16_t tail = load16(scan + best - 1);
    int32_t found = -1;
    for (;;) {
        // Most candidates share only the hash: two loads reject them, the
        // bytes that would make the match longer than the best first.
        const uint8_t* match = bytes + candidate;
        if (load16(match + best - 1) == tail && (load32(match) & 0xFFFFFF) == head) {
            int32_t length = commonLength(scan, match, maxLength);
            if (length > best) {
                best = length;
                found = candidate;
                if (length >= nice)
                    break;
                tail = load16(scan + best - 1);
            }
        }
        uint16_t step = links[candidate];
        if (--tries <= 0 || step == 0 || candidate - step < oldest)
            break;
        candidate -= step;
    }
    if (found >= 0)
        distance = at - found;
    return best;
}

void DeflateStream::parse(bool toEnd) {
    const Limits& limits = limitsByLevel[level];
    int32_t end = toEnd ? filled : filled - lookahead;
    int32_t lastHashable = filled - minMatch;
    // The next position's key is computed a step early, so that its
    // multiplications overlap the chain walk of this one.
    uint32_t key = position <= lastHashable ? hashKey(position) : 0;
    while (position < end) {
        int32_t candidate = position <= lastHashable ? insert(position, key) : -1;
        uint32_t nextKey = position + 1 <= lastHashable ? hashKey(position + 1) : 0;
        int32_t previousLength = matchLength;
        int32_t previousDistance = matchDistance;
        matchLength = minMatch - 1;
        if (candidate >= 0 && previousLength < limits.lazy && position - candidate <= maxDistance) {
            matchLength = longestMatch(position, candidate, std::max(previousLength, minMatch - 1),
                                       matchDistance);
            if (matchLength == minMatch && matchDistance > tooFarForMinimalMatch)
                matchLength = minMatch - 1;
        }
        if (previousLength >= minMatch && matchLength <= previousLength) {
            // The match waiting at position - 1 wins; hash what it covers.
            int32_t next = position - 1 + previousLength;
            emitMatch(previousDistance, previousLength);
            int32_t stop = std::min(next, lastHashable + 1);
            for (int32_t at = position + 1; at < stop; ++at)
                insert(at, hashKey(at));
            position = next;
            key = position <= lastHashable ? hashKey(position) : 0;
            hasPending = false;
            matchLength = minMatch - 1;
            continue;
        }
        if (hasPending)
            emitLiteral(position - 1);
        hasPending = true;
        ++position;
        key = nextKey;
    }
}

void DeflateStream::emitLiteral(int32_t at) {
    block.addLiteral(window[at]);
    ++literalRun;
    ++emitted;
    if (block.isFull())
        closeBlock(false);
}

void DeflateStream::emitMatch(int32_t distance, int32_t length) {
    block.addMatch(distance, length);
    literalRun = 0;
    emitted += length;
    if (block.isFull())
        closeBlock(false);
}

void DeflateStream::closeBlock(bool isFinal) {
    int32_t start = emitted - block.coveredLength();
    block.code(writer, isFinal, start >= 0 ? window + start : nullptr);
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
    for (int32_t i = 0; i < hashHeads; ++i)
        heads[i] = heads[i] >= shift ? heads[i] - shift : -1;
    filled -= shift;
    position -= shift;
    emitted -= shift;
}
