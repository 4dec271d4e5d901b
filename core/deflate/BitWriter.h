// BitWriter: packs bits lowest first, as DEFLATE sends them, into a byte
// buffer that goes to a borrowed output stream whenever it fills. Used by
// DeflateStream and DeflateBlockCoder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>

#include "core/Stream.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "flushBytes stores the bit buffer as a little-endian word");

class BitWriter {
public:
    BitWriter() = default;
    BitWriter(const BitWriter&) = delete;
    BitWriter& operator=(const BitWriter&) = delete;

    void setOutput(Stream* stream) { output = stream; }
    bool hasOutput() const { return output != nullptr; }
    // Latched by the first write the output did not take whole.
    bool failed() const { return writeFailed; }
    // Bits sent so far modulo 8: where the next bit lands in its byte.
    int bitPhase() const { return bitCount & 7; }

    // The token loop's pair: append() adds bits without looking at the
    // buffer, as long as fewer than 64 are pending; flushBytes() then moves
    // the whole bytes out with one eight-byte store (the buffer has room for
    // it past its capacity) and leaves at most 7 bits pending.
    void append(uint32_t value, int width) {
        bits |= uint64_t(value) << bitCount;
        bitCount += width;
    }
    void flushBytes() {
        std::memcpy(buffer + fill, &bits, 8);  // little-endian: the oldest bits first
        int whole = bitCount >> 3;
        fill += size_t(whole);
        bits >>= whole << 3;
        bitCount &= 7;
        if (fill > capacity - 8)
            drain();
    }

    // width <= 32. bits: pending output, lowest bit first; bitCount: how many are valid.
    void put(uint32_t value, int width) {
        bits |= uint64_t(value) << bitCount;
        bitCount += width;
        if (bitCount >= 32) {
            uint32_t word = uint32_t(bits);
            std::memcpy(buffer + fill, &word, 4);
            fill += 4;
            bits >>= 32;
            bitCount -= 32;
            if (fill > capacity - 8)
                drain();
        }
    }

    // Pads with zero bits to the next byte boundary.
    void alignToByte() {
        put(0, (8 - (bitCount & 7)) & 7);
        for (; bitCount > 0; bitCount -= 8, bits >>= 8)
            putByte(uint8_t(bits));
    }

    // Only on a byte boundary (after alignToByte).
    void putBytes(const void* bytes, size_t length) {
        const uint8_t* p = static_cast<const uint8_t*>(bytes);
        while (length > 0) {
            size_t piece = std::min(length, capacity - fill);
            std::memcpy(buffer + fill, p, piece);
            fill += piece;
            p += piece;
            length -= piece;
            if (fill == capacity)
                drain();
        }
    }

    // Hands the whole bytes gathered so far to the output. After a failed
    // write nothing more goes out: a stream with a hole is worse than a short one.
    void drain() {
        if (fill > 0 && !writeFailed && (!output || !output->writeAll(buffer, int32_t(fill))))
            writeFailed = true;
        fill = 0;
    }

private:
    void putByte(uint8_t byte) {
        buffer[fill++] = byte;
        if (fill == capacity)
            drain();
    }

    static constexpr size_t capacity = 16384;
    Stream* output = nullptr;
    uint64_t bits = 0;
    int bitCount = 0;
    bool writeFailed = false;
    size_t fill = 0;
    uint8_t buffer[capacity + 8];
};
