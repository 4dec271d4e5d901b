// DeflateStream: window, hash chains, lazy match parsing, framing.
#include "DeflateStream.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "Checksum.h"
#include "Hash32.h"

using namespace deflateFormat;

namespace {

// A three-byte match this far back costs more than three literals.
constexpr int32_t tooFarForMinimalMatch = 4096;

uint32_t load32(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, 4);
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

uint32_t initialChecksum(int32_t framing) { return framing == FramingZlib ? 1u : 0u; }

}  // namespace

const DeflateStream::Limits DeflateStream::limitsByLevel[10] = {
    {0, 0, 0, 0},          {4, 4, 8, 4},          {8, 4, 16, 8},
    {16, 8, 32, 32},       {32, 8, 64, 64},       {64, 16, 128, 128},
    {128, 16, 128, 128},   {256, 32, 258, 258},   {1024, 32, 258, 258},
    {4096, 32, 258, 258},
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

int32_t DeflateStream::insert(int32_t at) {
    uint32_t key = hash32Word(load32(window + at) & 0xFFFFFF) & (hashHeads - 1);
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
    int32_t maxLength = std::min(maxMatch, filled - at);
    if (best >= maxLength)
        return best;
    int32_t nice = std::min(limits.nice, maxLength);
    int32_t oldest = std::max(0, at - maxDistance);
    const uint8_t* scan = window + at;
    for (;;) {
        const uint8_t* match = window + candidate;
        if (match[best] == scan[best] && match[0] == scan[0] && match[1] == scan[1]) {
            int32_t length = commonLength(scan, match, maxLength);
            if (length > best) {
                best = length;
                distance = at - candidate;
                if (length >= nice)
                    break;
            }
        }
        uint16_t step = chain[candidate];
        if (--tries <= 0 || step == 0 || candidate - step < oldest)
            break;
        candidate -= step;
    }
    return best;
}

void DeflateStream::parse(bool toEnd) {
    const Limits& limits = limitsByLevel[level];
    int32_t end = toEnd ? filled : filled - lookahead;
    while (position < end) {
        int32_t candidate = position + minMatch <= filled ? insert(position) : -1;
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
            int32_t lastHashed = std::min(next, filled - minMatch + 1);
            for (int32_t at = position + 1; at < lastHashed; ++at)
                insert(at);
            position = next;
            hasPending = false;
            matchLength = minMatch - 1;
        } else if (hasPending) {
            emitLiteral(position - 1);
            ++position;
        } else {
            hasPending = true;
            ++position;
        }
    }
}

void DeflateStream::emitLiteral(int32_t at) {
    block.addLiteral(window[at]);
    ++emitted;
    if (block.isFull())
        closeBlock(false);
}

void DeflateStream::emitMatch(int32_t distance, int32_t length) {
    block.addMatch(distance, length);
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
