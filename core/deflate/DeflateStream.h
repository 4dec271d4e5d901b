// DeflateStream: compresses everything written to it into a borrowed output
// stream, in one of four framings (raw, raw with CRC-32, zlib, gzip). The
// codec's encoder writes its coded blocks through one with zlib framing.
#pragma once

#include <cstdint>

#include "core/Stream.h"
#include "core/String.h"
#include "core/deflate/BitWriter.h"
#include "core/deflate/DeflateBlockCoder.h"
#include "core/deflate/DeflateFormat.h"
#include "core/deflate/MatchCosts.h"

class DeflateStream final : public Stream {
public:
    explicit DeflateStream(Stream* output = nullptr, int32_t framing = FramingRaw);  // output borrowed
    ~DeflateStream() override;  // finishes an unfinished stream
    DeflateStream(const DeflateStream&) = delete;
    DeflateStream& operator=(const DeflateStream&) = delete;

    // Settings take effect before the first byte is written.
    void setFraming(int32_t value);
    void setOutput(Stream* stream);
    void setLevel(int32_t value);  // 1 (fastest) to 9 (smallest, the default)
    void setGzipName(const String& name) { gzipName = name; }
    void setGzipComment(const String& comment) { gzipComment = comment; }
    void setGzipTime(uint32_t unixTime) { gzipTime = unixTime; }

    bool write(const void* buffer, int32_t length, uint32_t& count) override;
    // Finishes the stream (pending match, last block, trailer), then flushes the output.
    bool flush() override;
    uint32_t flags() override;

    // CRC-32 or Adler-32 of the input so far, as the framing wants it.
    uint32_t checksum() const { return runningChecksum; }
    int64_t totalIn() const { return inputLength; }

    // The last 128 tokens of the parse, a bit per token (set for a match).
    using TokenHistory = unsigned __int128;

private:
    static constexpr int32_t windowSize = 65536;
    // Positions closer than this to the end of the window wait for more
    // input, so that a match may run its full length and hashing its three bytes.
    static constexpr int32_t lookahead = deflateFormat::maxMatch + deflateFormat::minMatch + 1;

    struct Limits {
        int32_t chain;  // candidates tried per search
        int32_t good;   // a pending match this long quarters the next search
        int32_t nice;   // a match this long ends the search
        int32_t lazy;   // a pending match this long is taken without a second search
    };
    static const Limits limitsByLevel[10];

    bool finish();
    void writeHeader();
    void writeTrailer();
    void parse(bool toEnd);
    void hashNewPositions(int32_t end);
    void slideWindow();
    void closeBlock(bool isFinal);
    void emitLiteralsUpTo(int32_t end);
    void emitMatch(int32_t distance, int32_t length);

    Stream* output = nullptr;
    BitWriter writer;
    DeflateBlockCoder block;
    int32_t framing = FramingRaw;
    int32_t level = 9;

    // Window: input bytes [0, filled); positions before `position` are parsed.
    uint8_t* window = nullptr;
    int32_t* heads = nullptr;    // newest position per key, -1 when none (see MatchFinder)
    uint16_t* chain = nullptr;   // per position: distance back to the previous one with its key, 0 for none
    uint16_t* keys = nullptr;    // per position below `keyed`: its head index
    int32_t keyed = 0;
    int32_t filled = 0;
    int32_t position = 0;
    // Lazy matching: the match found at position - 1 waits (matchLength < 3
    // when none); literals wait in the window from `emitted`.
    int32_t matchLength = deflateFormat::minMatch - 1;
    int32_t matchDistance = 0;
    // Input before this window position is in blocks; the current block
    // starts at emitted - block.coveredLength(), below 0 once it slid out.
    int32_t emitted = 0;
    // Bit i set when the token i + 1 places back was a match; a new stream
    // starts out searching deep.
    TokenHistory recentTokens = ~TokenHistory(0);
    MatchCosts costs;  // of the block last sent; matches that cost more than their literals are not taken

    uint32_t runningChecksum = 0;
    int64_t inputLength = 0;
    String gzipName, gzipComment;
    uint32_t gzipTime = 0;
    bool headerWritten = false;
    bool finished = false;
};
