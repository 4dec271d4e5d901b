// InflateStream: framing checks, the block state machine, table-driven
// symbol decoding in a fast loop and a careful one, ZIP decryption through a
// TapStream.
#include "core/deflate/InflateStream.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <new>

#include "core/deflate/Checksum.h"
#include "core/deflate/InflateTable.h"

using namespace deflateFormat;
using namespace inflateTable;

namespace {

constexpr uint32_t zipInitialKeys[3] = {0x12345678u, 0x23456789u, 0x34567890u};

struct SymbolEntries {
    uint32_t literals[literalLengthSymbols];
    uint32_t distances[distanceSymbols];
    uint32_t lengths[codeLengthSymbols];
};

constexpr SymbolEntries makeSymbolEntries() {
    SymbolEntries t{};
    for (uint32_t s = 0; s < 256; ++s)
        t.literals[s] = entry(s, kindLiteral);
    t.literals[endOfBlock] = entry(0, kindEndOfBlock);
    for (int code = 0; code < lengthSymbols; ++code)
        t.literals[257 + code] = entry(lengthBase[code], lengthExtra[code]);
    for (int s = 257 + lengthSymbols; s < literalLengthSymbols; ++s)
        t.literals[s] = entry(0, kindInvalid);
    for (int code = 0; code < usableDistanceSymbols; ++code)
        t.distances[code] = entry(distanceBase[code], distanceExtra[code]);
    for (int s = usableDistanceSymbols; s < distanceSymbols; ++s)
        t.distances[s] = entry(0, kindInvalid);
    for (uint32_t s = 0; s < codeLengthSymbols; ++s)
        t.lengths[s] = entry(s, 0);
    return t;
}

constexpr SymbolEntries symbolEntries = makeSymbolEntries();

uint64_t load64(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
    return v;
}

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the bit reader loads little-endian words");

constexpr uint64_t lowBits(int width) { return (uint64_t(1) << width) - 1; }

// The bit budget. Both refills leave at least refilledBits bits while the
// input lasts; the most one symbol needs is a whole match.
constexpr int refilledBits = 56;
constexpr int maxLengthExtraBits = *std::max_element(std::begin(lengthExtra), std::end(lengthExtra));
constexpr int maxDistanceExtraBits = *std::max_element(std::begin(distanceExtra), std::end(distanceExtra));
constexpr int maxMatchBits = maxCodeLength + maxLengthExtraBits + maxCodeLength + maxDistanceExtraBits;
// The fast loop runs while the input buffer holds this much: its refill's word.
constexpr int fastInputBytes = 8;

// Copies a back-reference. Distances of a word and more go in whole words,
// each read wholly from bytes already written, and the last may write up to
// copyWordBytes - 1 bytes beyond the end, which the window allows.
constexpr uint32_t copyWordBytes = 8;

void copyMatch(uint8_t* to, uint32_t distance, uint32_t length) {
    const uint8_t* from = to - distance;
    if (distance >= copyWordBytes) {
        uint8_t* end = to + length;
        do {
            std::memcpy(to, from, copyWordBytes);
            to += copyWordBytes;
            from += copyWordBytes;
        } while (to < end);
    } else if (distance == 1) {
        std::memset(to, *from, length);
    } else {
        for (uint32_t i = 0; i < length; ++i)
            to[i] = from[i];
    }
}

}  // namespace

InflateStream::InflateStream(int32_t framingValue)
    : framing(framingValue),
      inputBuffer(new (std::nothrow) uint8_t[inputCapacity]),
      window(new (std::nothrow) uint8_t[windowCapacity]),
      literalTable(new (std::nothrow) uint32_t[literalTableSize]),
      distanceTable(new (std::nothrow) uint32_t[distanceTableSize]),
      fixedLiteralTable(new (std::nothrow) uint32_t[literalTableSize]),
      fixedDistanceTable(new (std::nothrow) uint32_t[distanceTableSize]) {
    std::memcpy(initialKeys, zipInitialKeys, sizeof initialKeys);
    std::memcpy(keys, zipInitialKeys, sizeof keys);
}

InflateStream::~InflateStream() {
    closeSource();
    delete[] inputBuffer;
    delete[] window;
    delete[] literalTable;
    delete[] distanceTable;
    delete[] fixedLiteralTable;
    delete[] fixedDistanceTable;
}

void InflateStream::closeSource() {
    if (ownsSource)
        delete source;
    source = nullptr;
    input = nullptr;
    ownsSource = false;
}

bool InflateStream::open(Stream* stream, const uint32_t* zipKeys, bool owns) {
    closeSource();
    source = stream;
    ownsSource = owns;
    state = State::Failed;
    if (!source || !inputBuffer || !window || !literalTable || !distanceTable || !fixedLiteralTable ||
        !fixedDistanceTable)
        return false;
    input = source;
    if (zipKeys) {
        std::memcpy(initialKeys, zipKeys, sizeof initialKeys);
        std::memcpy(keys, zipKeys, sizeof keys);
        tap.setInner(source);
        tap.setCallback(TapStream::Callback::fromMethod<&InflateStream::decrypt>(this));
        input = &tap;
    }
    inNext = inEnd = inputBuffer;
    sourceEnded = false;
    bits = 0;
    bitCount = 0;
    written = delivered = checksummed = 0;
    lastBlock = false;
    storedLeft = 0;
    runningChecksum = initialChecksum(framing);
    totalOut = 0;
    state = State::Header;
    return true;
}

uint32_t InflateStream::flags() { return source ? StreamOpen | StreamReadable : 0; }

void InflateStream::decrypt(void* buffer, uint32_t count) {
    uint8_t* bytes = static_cast<uint8_t*>(buffer);
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t t = keys[2] | 2;
        uint8_t plain = uint8_t(bytes[i] ^ ((t * (t ^ 1)) >> 8));
        bytes[i] = plain;
        keys[0] = crc32Step(keys[0], plain);
        keys[1] = (keys[1] + (keys[0] & 0xFF)) * 134775813u + 1;
        keys[2] = crc32Step(keys[2], uint8_t(keys[1] >> 24));
    }
}

bool InflateStream::read(void* buffer, int32_t length, uint32_t& count) {
    count = 0;
    if (length < 0 || (length > 0 && !buffer) || !source)
        return false;
    uint8_t* out = static_cast<uint8_t*>(buffer);
    while (count < uint32_t(length)) {
        if (delivered < written) {
            int32_t piece = std::min(written - delivered, length - int32_t(count));
            std::memcpy(out + count, window + delivered, size_t(piece));
            delivered += piece;
            count += uint32_t(piece);
            continue;
        }
        if (state == State::Done || state == State::Failed)
            break;
        if (written >= windowLimit) {
            std::memmove(window, window + written - historySize, historySize);
            written = delivered = checksummed = historySize;
        }
        decode();
    }
    return state != State::Failed;
}

void InflateStream::decode() {
    while (written < windowLimit && state != State::Done && state != State::Failed) {
        switch (state) {
        case State::Header:
            if (readHeader())
                state = State::BlockHeader;
            else
                fail();
            break;
        case State::BlockHeader:
            if (!readBlockHeader())
                fail();
            break;
        case State::Stored:
            copyStored();
            break;
        case State::Codes:
            decodeCodes();
            break;
        case State::Trailer:
            updateChecksum();
            if (readTrailer())
                state = State::Done;
            else
                fail();
            break;
        default:
            break;
        }
    }
    updateChecksum();
}

void InflateStream::updateChecksum() {
    if (checksummed == written)
        return;
    size_t length = size_t(written - checksummed);
    if (framing == FramingZlib)
        runningChecksum = adler32Update(runningChecksum, window + checksummed, length);
    else if (framing != FramingRaw)
        runningChecksum = crc32Update(runningChecksum, window + checksummed, length);
    totalOut += uint32_t(length);
    checksummed = written;
}

// ---- Bit reader ------------------------------------------------------------

// Keeps what is left of the input buffer and reads more behind it.
bool InflateStream::fillInput() {
    if (sourceEnded)
        return false;
    size_t left = size_t(inEnd - inNext);
    std::memmove(inputBuffer, inNext, left);
    uint32_t got = 0;
    bool ok = input->read(inputBuffer + left, int32_t(inputCapacity - left), got);
    if (!ok || got == 0)
        sourceEnded = true;
    inNext = inputBuffer;
    inEnd = inputBuffer + left + got;
    return got > 0;
}

// Adds whole bytes up to refilledBits, reading the source when the buffer
// runs dry; stops short only at the end of the input.
void InflateStream::refill() {
    while (bitCount < refilledBits) {
        if (inNext == inEnd && !fillInput())
            return;
        bits |= uint64_t(*inNext++) << bitCount;
        bitCount += 8;
    }
}

bool InflateStream::take(int width, uint32_t& value) {
    if (bitCount < width)
        refill();
    if (bitCount < width)
        return false;
    value = uint32_t(bits & lowBits(width));
    bits >>= width;
    bitCount -= width;
    return true;
}

// Takes the next code of `table`'s prefix code and gives its entry, which may
// still be of kind invalid. Fails on a code with no entry and on one cut short
// by the end of the input.
bool InflateStream::takeCode(const uint32_t* table, int rootBits, uint32_t& entry) {
    if (bitCount < maxCodeLength)
        refill();
    entry = lookup(table, rootBits, bits);
    int width = int(lengthOf(entry));
    if (width == 0 || width > bitCount)
        return false;
    bits >>= width;
    bitCount -= width;
    return true;
}

void InflateStream::alignToByte() {
    int drop = bitCount & 7;
    bits >>= drop;
    bitCount -= drop;
}

// ---- Framing ---------------------------------------------------------------

bool InflateStream::readHeader() {
    runningChecksum = initialChecksum(framing);
    if (framing == FramingZlib)
        return readZlibHeader();
    if (framing == FramingGzip)
        return readGzipHeader();
    return true;
}

bool InflateStream::readZlibHeader() {
    uint32_t method = 0, flagByte = 0;
    if (!take(8, method) || !take(8, flagByte))
        return false;
    bool deflateMethod = (method & 0x0F) == 8 && (method >> 4) <= 7;
    bool checkOk = (method << 8 | flagByte) % 31 == 0;
    bool presetDictionary = flagByte & 0x20;
    return deflateMethod && checkOk && !presetDictionary;
}

bool InflateStream::readGzipHeader() {
    enum : uint32_t { flagHeaderCrc = 2, flagExtra = 4, flagName = 8, flagComment = 16 };
    uint32_t headerCrc = 0;
    auto next = [&](uint32_t& byte) {
        if (!take(8, byte))
            return false;
        uint8_t b = uint8_t(byte);
        headerCrc = crc32Update(headerCrc, &b, 1);
        return true;
    };
    uint32_t id1 = 0, id2 = 0, method = 0, flagByte = 0, byte = 0;
    if (!next(id1) || !next(id2) || !next(method) || !next(flagByte))
        return false;
    if (id1 != 0x1F || id2 != 0x8B || method != 8 || flagByte > 31)
        return false;
    for (int i = 0; i < 6; ++i)  // modification time, extra flags, operating system
        if (!next(byte))
            return false;
    if (flagByte & flagExtra) {
        uint32_t low = 0, high = 0;
        if (!next(low) || !next(high))
            return false;
        for (uint32_t left = low | high << 8; left > 0; --left)
            if (!next(byte))
                return false;
    }
    for (uint32_t field : {uint32_t(flagName), uint32_t(flagComment)}) {
        if (!(flagByte & field))
            continue;
        do {
            if (!next(byte))
                return false;
        } while (byte != 0);
    }
    if (flagByte & flagHeaderCrc) {
        uint32_t stored = 0;
        if (!take(16, stored) || stored != (headerCrc & 0xFFFF))
            return false;
    }
    return true;
}

bool InflateStream::readTrailer() {
    alignToByte();
    uint32_t b[8] = {};
    if (framing == FramingZlib) {
        for (int i = 0; i < 4; ++i)
            if (!take(8, b[i]))
                return false;
        return (b[0] << 24 | b[1] << 16 | b[2] << 8 | b[3]) == runningChecksum;
    }
    if (framing == FramingGzip) {
        for (int i = 0; i < 8; ++i)
            if (!take(8, b[i]))
                return false;
        uint32_t crc = b[0] | b[1] << 8 | b[2] << 16 | b[3] << 24;
        uint32_t size = b[4] | b[5] << 8 | b[6] << 16 | b[7] << 24;
        return crc == runningChecksum && size == totalOut;
    }
    return true;
}

// ---- Blocks ----------------------------------------------------------------

bool InflateStream::readBlockHeader() {
    uint32_t header = 0;
    if (!take(3, header))
        return false;
    lastBlock = header & 1;
    switch (header >> 1) {
    case BlockStored: {
        uint32_t length = 0, complement = 0;
        alignToByte();
        if (!take(16, length) || !take(16, complement) || length != (~complement & 0xFFFF))
            return false;
        storedLeft = int32_t(length);
        state = State::Stored;
        return true;
    }
    case BlockFixed:
        if (!fixedBuilt && !buildFixedTables())
            return false;
        activeLiterals = fixedLiteralTable;
        activeDistances = fixedDistanceTable;
        state = State::Codes;
        return true;
    case BlockDynamic:
        if (!readDynamicTables())
            return false;
        activeLiterals = literalTable;
        activeDistances = distanceTable;
        state = State::Codes;
        return true;
    default:
        return false;
    }
}

bool InflateStream::buildFixedTables() {
    uint8_t lengths[literalLengthSymbols];
    for (int s = 0; s < literalLengthSymbols; ++s)
        lengths[s] = fixedLiteralLengthLength(s);
    uint8_t distanceLengths[distanceSymbols];
    std::memset(distanceLengths, fixedDistanceLength, sizeof distanceLengths);
    fixedBuilt = build(fixedLiteralTable, literalTableSize, literalRootBits, lengths, literalLengthSymbols,
                       symbolEntries.literals) &&
                 build(fixedDistanceTable, distanceTableSize, distanceRootBits, distanceLengths,
                       distanceSymbols, symbolEntries.distances);
    return fixedBuilt;
}

bool InflateStream::readDynamicTables() {
    uint32_t literalCount = 0, distanceCount = 0, lengthsCount = 0;
    if (!take(5, literalCount) || !take(5, distanceCount) || !take(4, lengthsCount))
        return false;
    literalCount += 257;
    distanceCount += 1;
    lengthsCount += 4;
    if (literalCount > uint32_t(usableLiteralLengthSymbols) || distanceCount > uint32_t(usableDistanceSymbols))
        return false;

    uint8_t lengthsLengths[codeLengthSymbols] = {};
    for (uint32_t i = 0; i < lengthsCount; ++i) {
        uint32_t value = 0;
        if (!take(3, value))
            return false;
        lengthsLengths[codeLengthOrder[i]] = uint8_t(value);
    }
    uint32_t lengthsTable[1 << lengthsRootBits];
    if (!build(lengthsTable, 1 << lengthsRootBits, lengthsRootBits, lengthsLengths, codeLengthSymbols,
               symbolEntries.lengths))
        return false;

    uint8_t lengths[usableLiteralLengthSymbols + usableDistanceSymbols];
    uint32_t total = literalCount + distanceCount;
    for (uint32_t i = 0; i < total;) {
        uint32_t e = 0;
        if (!takeCode(lengthsTable, lengthsRootBits, e))
            return false;
        uint32_t symbol = valueOf(e);
        if (symbol < 16) {
            lengths[i++] = uint8_t(symbol);
            continue;
        }
        uint32_t repeat = 0;
        uint8_t value = 0;
        if (symbol == 16) {
            if (i == 0 || !take(2, repeat))
                return false;
            value = lengths[i - 1];
            repeat += 3;
        } else if (symbol == 17) {
            if (!take(3, repeat))
                return false;
            repeat += 3;
        } else {
            if (!take(7, repeat))
                return false;
            repeat += 11;
        }
        if (i + repeat > total)
            return false;
        std::memset(lengths + i, value, repeat);
        i += repeat;
    }
    if (lengths[endOfBlock] == 0)
        return false;
    return build(literalTable, literalTableSize, literalRootBits, lengths, int(literalCount),
                 symbolEntries.literals) &&
           build(distanceTable, distanceTableSize, distanceRootBits, lengths + literalCount,
                 int(distanceCount), symbolEntries.distances);
}

void InflateStream::copyStored() {
    while (storedLeft > 0 && written < windowLimit) {
        if (bitCount >= 8) {  // whole bytes the bit reader already holds come first
            window[written++] = uint8_t(bits);
            bits >>= 8;
            bitCount -= 8;
            --storedLeft;
            continue;
        }
        if (inNext == inEnd && !fillInput()) {
            fail();
            return;
        }
        int32_t piece = std::min({storedLeft, windowLimit - written, int32_t(inEnd - inNext)});
        std::memcpy(window + written, inNext, size_t(piece));
        written += piece;
        inNext += piece;
        storedLeft -= piece;
    }
    if (storedLeft == 0)
        endBlock();
}

// ---- Symbols ---------------------------------------------------------------

// Decodes the block's symbols until it ends, the window fills or the stream
// fails. The fast loop runs while a word of input is buffered; the careful
// one takes the last few bytes, of the stream or of a source that hands out
// only a few bytes at a time, until the buffer holds a word again.
void InflateStream::decodeCodes() {
    while (state == State::Codes && written < windowLimit) {
        if (inEnd - inNext < fastInputBytes)
            fillInput();  // keeps the unread bytes and appends what the source has
        decodeFast();
        while (state == State::Codes && written < windowLimit && inEnd - inNext < fastInputBytes)
            decodeCareful();
    }
}

// The fast loop. Its condition checks the two bounds one symbol can cross:
// a word of input for the refill at the top of the step, and room in the
// window for the longest match and its copy's overrun; nothing inside checks
// either again. The refill loads that word behind the valid bits and keeps
// as many of its whole bytes as fit, which leaves at least 56 bits: enough
// for the longest literal/length code, its extra bits, the longest distance
// code and its extra bits (15 + 5 + 15 + 13 = 48), so the step takes bits
// without counting them. What no bound rules out is damage in the stream
// itself: an invalid code, or a distance reaching back before the start of
// the output, ends the loop and fails the stream.
// Everything the loop reads from the object is copied into locals first,
// because a store into the window may alias any member and would otherwise
// send them back to memory on every byte.
void InflateStream::decodeFast() {
    uint64_t buffer = bits;
    int count = bitCount;
    const uint8_t* in = inNext;
    const uint8_t* const inLimit = inEnd;
    uint8_t* const start = window;
    uint8_t* out = start + written;
    uint8_t* const outLimit = start + windowLimit;
    const uint32_t* const literals = activeLiterals;
    const uint32_t* const distances = activeDistances;
    auto consume = [&](uint32_t width) {
        buffer >>= width;
        count -= int(width);
    };

    static_assert(fastInputBytes >= int(sizeof(uint64_t)), "the refill loads one word");
    static_assert(windowCapacity - windowLimit >= maxMatch + int(copyWordBytes) - 1,
                  "the longest match and its copy's last word fit behind the limit");
    while (inLimit - in >= fastInputBytes && out < outLimit) {
        // count | 56 is count plus the whole bytes that fit below 64 bits.
        static_assert(refilledBits == 64 - 8, "the refill keeps whole bytes of the word");
        static_assert(maxMatchBits <= refilledBits, "one refill covers a whole match");
        buffer |= load64(in) << count;
        in += (63 - count) >> 3;
        count |= refilledBits;

        uint32_t e = lookup(literals, literalRootBits, buffer);
        consume(lengthOf(e));
        uint32_t kind = kindOf(e);
        if (kind == kindLiteral) {
            *out++ = uint8_t(valueOf(e));
            // The codec's payload is mostly literals: two more fit the bits
            // of this refill, and the window's spare room behind its limit.
            static_assert(3 * maxCodeLength <= refilledBits, "three literal codes per refill");
            static_assert(windowCapacity - windowLimit >= 3, "three literals behind the limit");
            e = lookup(literals, literalRootBits, buffer);
            if (kindOf(e) != kindLiteral)
                continue;
            consume(lengthOf(e));
            *out++ = uint8_t(valueOf(e));
            e = lookup(literals, literalRootBits, buffer);
            if (kindOf(e) != kindLiteral)
                continue;
            consume(lengthOf(e));
            *out++ = uint8_t(valueOf(e));
            continue;
        }
        if (kind == kindEndOfBlock) {
            endBlock();
            break;
        }
        static_assert(maxDistanceExtraBits < kindInvalid, "an extra-bit count is never a flag");
        if (kind & kindInvalid) {
            fail();
            break;
        }
        uint32_t length = valueOf(e) + uint32_t(buffer & lowBits(int(kind)));
        consume(kind);

        e = lookup(distances, distanceRootBits, buffer);
        kind = kindOf(e);
        if (kind & kindInvalid) {
            fail();
            break;
        }
        consume(lengthOf(e));
        uint32_t distance = valueOf(e) + uint32_t(buffer & lowBits(int(kind)));
        consume(kind);
        if (distance > uint32_t(out - start)) {
            fail();
            break;
        }
        copyMatch(out, distance, length);
        out += length;
    }
    bits = buffer & lowBits(count);
    bitCount = count;
    inNext = in;
    written = int32_t(out - start);
}

// One symbol, every bit accounted for: a code or extra bits that the input
// cannot supply fail the stream.
void InflateStream::decodeCareful() {
    uint32_t e = 0, extra = 0;
    if (!takeCode(activeLiterals, literalRootBits, e))
        return fail();
    uint32_t kind = kindOf(e);
    if (kind == kindLiteral) {
        window[written++] = uint8_t(valueOf(e));
        return;
    }
    if (kind == kindEndOfBlock)
        return endBlock();
    if ((kind & kindInvalid) || !take(int(kind), extra))
        return fail();
    uint32_t length = valueOf(e) + extra;

    if (!takeCode(activeDistances, distanceRootBits, e) || (kindOf(e) & kindInvalid) ||
        !take(int(kindOf(e)), extra))
        return fail();
    uint32_t distance = valueOf(e) + extra;
    if (distance > uint32_t(written))
        return fail();
    copyMatch(window + written, distance, length);
    written += int32_t(length);
}
