// InflateStream: decompresses a DEFLATE stream read from a source stream, in
// one of four framings, checking the framing's header and trailer. It can
// undo the traditional ZIP encryption of the compressed bytes when given the
// three keys. The codec's decoder reads its coded blocks through one with
// zlib framing.
#pragma once

#include <cstdint>

#include "core/Stream.h"
#include "core/TapStream.h"
#include "core/deflate/DeflateFormat.h"

class InflateStream final : public Stream {
public:
    explicit InflateStream(int32_t framing = FramingRaw);
    ~InflateStream() override;
    InflateStream(const InflateStream&) = delete;
    InflateStream& operator=(const InflateStream&) = delete;

    // Takes effect at the next open, or at once before the first read.
    void setFraming(int32_t value) { framing = value; }
    // Starts decompressing `source` from its current position. `keys` (three
    // words, the ZIP keys after the password) turns on decryption; null means
    // plain data. A source owned from an earlier open is destroyed first.
    bool open(Stream* source, const uint32_t* keys, bool ownsSource);

    // Delivers decompressed bytes; a count of 0 with true means the end.
    // Fails on any damage, including a trailer that does not match the data.
    bool read(void* buffer, int32_t length, uint32_t& count) override;
    uint32_t flags() override;

    // CRC-32 or Adler-32 of the data decoded so far, as the framing wants it.
    uint32_t checksum() const { return runningChecksum; }

private:
    enum class State : uint8_t { Header, BlockHeader, Stored, Codes, Trailer, Done, Failed };

    static constexpr int32_t historySize = 32768;
    // A symbol is decoded only while the window holds less than windowLimit
    // bytes, so the last one may add a whole match; match copies move whole
    // 8-byte words and may write up to copyOverrun bytes past the match.
    static constexpr int32_t windowLimit = 65536;
    static constexpr int32_t copyOverrun = 7;
    static constexpr int32_t windowCapacity = windowLimit + deflateFormat::maxMatch + copyOverrun;
    static constexpr int32_t inputCapacity = 16384;
    static constexpr int literalRootBits = 10;
    static constexpr int distanceRootBits = 8;
    static constexpr int lengthsRootBits = 7;
    static constexpr int literalTableSize = 2560;
    static constexpr int distanceTableSize = 768;

    void closeSource();
    void decrypt(void* buffer, uint32_t count);
    void decode();
    void fail() { state = State::Failed; }
    bool readHeader();
    bool readZlibHeader();
    bool readGzipHeader();
    bool readTrailer();
    bool readBlockHeader();
    bool readDynamicTables();
    bool buildFixedTables();
    void copyStored();
    void decodeCodes();
    void decodeFast();
    void decodeCareful();
    void endBlock() { state = lastBlock ? State::Trailer : State::BlockHeader; }
    void updateChecksum();

    bool fillInput();
    void refill();
    bool take(int width, uint32_t& value);
    bool takeCode(const uint32_t* table, int rootBits, uint32_t& entry);
    void alignToByte();

    int32_t framing = FramingRaw;
    State state = State::Done;
    Stream* source = nullptr;
    Stream* input = nullptr;  // the source, or the tap over it when decrypting
    bool ownsSource = false;
    TapStream tap;
    uint32_t initialKeys[3];
    uint32_t keys[3];

    // The bit reader. `bits` holds the next `bitCount` bits of the stream,
    // the next bit lowest; behind them come the bytes [inNext, inEnd) of
    // inputBuffer, then whatever the source still has. Above bitCount, `bits`
    // is zero. The fast loop's working copy may also hold there the low bits
    // of the byte at inNext: its next word-wide refill ORs the same bits in
    // again, so they do no harm, and they are cleared when the copy is stored.
    uint8_t* inputBuffer = nullptr;
    const uint8_t* inNext = nullptr;
    const uint8_t* inEnd = nullptr;
    bool sourceEnded = false;
    uint64_t bits = 0;
    int bitCount = 0;

    // Window: [0, written) is output, the part before `delivered` already
    // handed out; up to 32 KiB before `written` serve back-references.
    uint8_t* window = nullptr;
    int32_t written = 0;
    int32_t delivered = 0;
    int32_t checksummed = 0;

    bool lastBlock = false;
    int32_t storedLeft = 0;
    uint32_t* literalTable = nullptr;
    uint32_t* distanceTable = nullptr;
    uint32_t* fixedLiteralTable = nullptr;
    uint32_t* fixedDistanceTable = nullptr;
    const uint32_t* activeLiterals = nullptr;
    const uint32_t* activeDistances = nullptr;
    bool fixedBuilt = false;

    uint32_t runningChecksum = 0;
    uint32_t totalOut = 0;
};
