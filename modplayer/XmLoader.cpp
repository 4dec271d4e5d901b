// loadXm: reads an XM module (format version 0x0104) into a Module: song
// header, packed patterns, instruments with their envelopes, and the
// delta-coded 8- and 16-bit samples. Entered through loadModule.
//
// The stream is read strictly forwards. Every size the file states is checked
// against what the stream still holds before anything is allocated for it,
// so a small hostile file cannot claim memory or time it does not carry.
#include <algorithm>
#include <cstring>
#include <utility>

#include "modplayer/EffectCodes.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/XmFormat.h"

namespace mod {

namespace {

uint16_t word16(const uint8_t* bytes) {
    return uint16_t(bytes[0] | bytes[1] << 8);
}

uint32_t word32(const uint8_t* bytes) {
    return uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
}

// Forward reads that keep count of what the stream still holds (when it can
// tell its size), so that claimed sizes are refused before they are trusted.
class XmInput {
public:
    explicit XmInput(Stream& source) : stream(source) {
        int64_t size = stream.size(), position = stream.tell();
        remaining = size >= 0 && position >= 0 ? size - position : -1;
    }
    XmInput(const XmInput&) = delete;

    bool canHold(int64_t length) const { return remaining < 0 || length <= remaining; }

    bool read(void* buffer, int32_t length) {
        if (!canHold(length) || !stream.readExactly(buffer, length))
            return false;
        consume(length);
        return true;
    }

    bool skip(int64_t length) {
        if (!canHold(length) || !stream.skip(length))
            return false;
        consume(length);
        return true;
    }

    // A record that starts with its own 32-bit size, counted from that
    // field: fills `record` (knownSize bytes, size field included) with what
    // the record holds, zeroes what it does not reach, skips what lies beyond.
    bool readRecord(uint8_t* record, int32_t knownSize) {
        std::memset(record, 0, size_t(knownSize));
        if (!read(record, 4))
            return false;
        uint32_t recordSize = word32(record);
        if (recordSize < 4)
            return false;
        int32_t held = int32_t(std::min<uint32_t>(recordSize, uint32_t(knownSize)));
        return read(record + 4, held - 4) && skip(int64_t(recordSize) - held);
    }

    // Reads `length` bytes, growing `bytes` only as they arrive: a stream of
    // unknown size that ends early costs no more memory than it held.
    bool readGrowing(Array<uint8_t>& bytes, uint32_t length) {
        constexpr int32_t piece = 1 << 20;
        bytes.clear();
        if (length > uint32_t(INT32_MAX) || !canHold(length))
            return false;
        while (bytes.count() < int32_t(length)) {
            int32_t have = bytes.count();
            int32_t wanted = std::min(piece, int32_t(length) - have);
            if (!bytes.resize(have + wanted) || !read(bytes.data() + have, wanted))
                return false;
        }
        return true;
    }

private:
    void consume(int64_t length) {
        if (remaining >= 0)
            remaining -= length;
    }

    Stream& stream;
    int64_t remaining;  // -1 when the stream cannot tell
};

bool isXmHeader(const uint8_t* fixed) {
    bool id = std::memcmp(fixed, xmIdText, xmIdLength) == 0 ||
              std::memcmp(fixed, xmIdTextLowerCase, xmIdLength) == 0;
    return id && word16(fixed + xmVersionOffset) == xmVersion;
}

// Text of a fixed-size field: up to the first NUL, without the trailing
// blanks trackers pad with; each byte is its own code point.
String fieldText(const uint8_t* bytes, int32_t size) {
    uint32_t codePoints[xmSampleNameLength];
    static_assert(xmSampleNameLength >= xmTitleLength && xmSampleNameLength >= xmInstrumentNameLength);
    int32_t length = 0;
    while (length < size && bytes[length] != 0) {
        codePoints[length] = bytes[length];
        ++length;
    }
    while (length > 0 && codePoints[length - 1] == ' ')
        --length;
    return String::fromCodePoints(codePoints, length);
}

// Refuses counts beyond what the format can express, before anything is
// allocated for them.
bool songCountsFit(const uint8_t* song) {
    int32_t channels = word16(song + xmChannelsOffset);
    return word16(song + xmSongLengthOffset) <= xmMaxOrders && channels > 0 && channels <= xmMaxChannels &&
           word16(song + xmPatternCountOffset) <= xmMaxPatterns &&
           word16(song + xmInstrumentCountOffset) <= xmMaxInstruments;
}

uint8_t byteOrDefault(uint16_t value, uint8_t fallback) {
    return value == 0 ? fallback : uint8_t(std::min<uint16_t>(value, 255));
}

// Channels, orders and the song's settings from the song header.
bool setUpSong(Module& module, const uint8_t* fixed, const uint8_t* song) {
    module.title = fieldText(fixed + xmTitleOffset, xmTitleLength);
    module.trackerName = fieldText(fixed + xmTrackerNameOffset, xmTrackerNameLength);
    module.songLength = word16(song + xmSongLengthOffset);
    int32_t restart = word16(song + xmRestartOffset);
    module.restartPosition = restart < module.songLength ? restart : 0;
    module.usesAmigaPeriods = (word16(song + xmFlagsOffset) & xmLinearFrequencies) ? 0 : 1;
    module.initialSpeed = byteOrDefault(word16(song + xmSpeedOffset), 6);
    module.initialTempo = byteOrDefault(word16(song + xmTempoOffset), 125);
    module.channelCount = word16(song + xmChannelsOffset);
    int32_t instruments = word16(song + xmInstrumentCountOffset);
    for (int32_t i = 0; i < module.channelCount; ++i)
        if (!module.channelPanning.add(128) || !module.channelMap.add(instruments ? i % instruments : 0))
            return false;
    for (int32_t i = 0; i < module.songLength; ++i)
        if (!module.orders.add(song[xmOrdersOffset + i]))
            return false;
    return true;
}

bool makeEmptyPattern(ModulePattern& pattern, int32_t rows, int32_t channels) {
    if (!pattern.resize(rows))
        return false;
    for (PatternRow& row : pattern)
        if (!row.resize(channels))
            return false;
    return true;
}

uint8_t noteFromXm(uint8_t note) {
    if (note >= 1 && note < xmKeyOffNote)
        return uint8_t(note - 1);
    return note == xmKeyOffNote ? noteKeyOff : noNote;
}

// Volume-column bytes below 0x10 and from 0x51 to 0x5F are no command.
uint8_t volumeColumn(uint8_t value) {
    bool setsVolume = value >= volumeSetBase && value <= volumeSetBase + 64;
    return setsVolume || value >= volumeSlideDown ? value : volumeNone;
}

// One cell from the packed stream; fields missing at the end read as zero.
const uint8_t* unpackCell(const uint8_t* at, const uint8_t* end, PatternCell& cell) {
    uint8_t present = xmHasNote | xmHasInstrument | xmHasVolume | xmHasEffect | xmHasParameter;
    if (*at & xmPackedCell)
        present = *at++;
    uint8_t fields[5] = {};
    for (int32_t i = 0; i < 5; ++i)
        if ((present & (1 << i)) && at < end)
            fields[i] = *at++;
    cell.note = noteFromXm(fields[0]);
    cell.instrument = fields[1];
    cell.volume = volumeColumn(fields[2]);
    if (fields[3] <= xmLastEffect) {  // other numbers are no effect at all
        cell.effect = fields[3];
        cell.parameter = fields[4];
    }
    return at;
}

// Cells the packed data does not reach stay empty.
void unpackPattern(const Array<uint8_t>& packed, ModulePattern& pattern) {
    const uint8_t* at = packed.data();
    const uint8_t* end = at + packed.count();
    for (PatternRow& row : pattern)
        for (PatternCell& cell : row) {
            if (at == end)
                return;
            at = unpackCell(at, end, cell);
        }
}

bool readPattern(XmInput& input, Module& module, Array<uint8_t>& packed) {
    uint8_t header[xmPatternHeaderSize];
    if (!input.readRecord(header, xmPatternHeaderSize))
        return false;
    int32_t rows = word16(header + xmPatternRowsOffset);
    if (rows > xmMaxRows || !input.readGrowing(packed, word16(header + xmPatternPackedSizeOffset)))
        return false;
    ModulePattern pattern;
    if (!makeEmptyPattern(pattern, rows, module.channelCount))
        return false;
    unpackPattern(packed, pattern);
    return module.patterns.add(std::move(pattern));
}

struct EnvelopeFields {
    int32_t points, count, sustain, flags;  // offsets in the instrument header
};
constexpr EnvelopeFields volumeEnvelopeFields = {xmVolumeEnvelopeOffset, xmVolumePointCountOffset,
                                                 xmVolumeSustainOffset, xmVolumeFlagsOffset};
constexpr EnvelopeFields panningEnvelopeFields = {xmPanningEnvelopeOffset, xmPanningPointCountOffset,
                                                  xmPanningSustainOffset, xmPanningFlagsOffset};

// At most 12 points (a larger count is clamped, as trackers do); a point
// placed before its predecessor is moved up to it, so that positions never
// go backwards; values above 64 are clamped. A sustain or loop that names a
// point the envelope does not have is switched off, and so is an envelope
// without points.
bool readEnvelope(const uint8_t* header, const EnvelopeFields& at, Envelope& envelope) {
    int32_t count = std::min<int32_t>(header[at.count], xmEnvelopePoints);
    uint16_t previous = 0;
    for (int32_t i = 0; i < count; ++i) {
        const uint8_t* bytes = header + at.points + 4 * i;
        EnvelopePoint point;
        point.position = std::max(word16(bytes), previous);
        point.value = int16_t(std::min<uint16_t>(word16(bytes + 2), xmEnvelopeMaxValue));
        previous = point.position;
        if (!envelope.points.add(point))
            return false;
    }
    envelope.sustainPoint = header[at.sustain];
    envelope.loopStartPoint = header[at.sustain + 1];
    envelope.loopEndPoint = header[at.sustain + 2];
    uint8_t flags = header[at.flags] & (envelopeOn | envelopeSustain | envelopeLoop);
    if (envelope.sustainPoint >= count)
        flags &= uint8_t(~envelopeSustain);
    if (envelope.loopEndPoint >= count || envelope.loopStartPoint > envelope.loopEndPoint)
        flags &= uint8_t(~envelopeLoop);
    envelope.flags = count > 0 ? flags : 0;
    return true;
}

// The settings after the sample count; present only when there are samples.
bool readInstrumentSettings(const uint8_t* header, ModuleInstrument& instrument) {
    std::memcpy(instrument.noteToSample, header + xmNoteMapOffset, xmNoteMapLength);
    const uint8_t* vibrato = header + xmVibratoOffset;
    instrument.vibratoType = vibrato[0] <= 3 ? vibrato[0] : 0;  // other types play the sine
    instrument.vibratoSweep = vibrato[1];
    instrument.vibratoDepth = vibrato[2];
    instrument.vibratoRate = vibrato[3];
    instrument.fadeout = word16(header + xmFadeoutOffset);
    return readEnvelope(header, volumeEnvelopeFields, instrument.volumeEnvelope) &&
           readEnvelope(header, panningEnvelopeFields, instrument.panningEnvelope);
}

// Undoes the delta coding in place: each stored value is the difference to
// the previous sample, in 8- or little-endian 16-bit wrapping arithmetic.
void undoDeltas(uint8_t* bytes, int32_t byteCount, bool sixteenBit) {
    if (!sixteenBit) {
        uint8_t value = 0;
        for (int32_t i = 0; i < byteCount; ++i)
            bytes[i] = value = uint8_t(value + bytes[i]);
        return;
    }
    uint16_t value = 0;
    for (int32_t i = 0; i + 1 < byteCount; i += 2) {
        value = uint16_t(value + word16(bytes + i));
        bytes[i] = uint8_t(value);
        bytes[i + 1] = uint8_t(value >> 8);
    }
}

int32_t loopTypeOf(uint8_t type) {
    switch (type & xmLoopMask) {
    case 0:
        return LoopNone;
    case 1:
        return LoopForward;
    default:
        return LoopPingPong;  // type 3 is not defined; it plays as ping-pong
    }
}

// Lengths and loop points in the header are bytes; 16-bit samples have half
// as many frames (an odd last byte is dropped).
bool makeSampleData(ModuleSample& sample, const uint8_t* header, Array<uint8_t>& bytes) {
    uint8_t type = header[xmSampleTypeOffset];
    int32_t frameBytes = (type & xmSixteenBit) ? 2 : 1;
    int64_t frames = bytes.count() / frameBytes;
    int64_t loopStart = word32(header + xmSampleLoopStartOffset) / frameBytes;
    int64_t loopEnd = loopStart + word32(header + xmSampleLoopLengthOffset) / frameBytes;
    undoDeltas(bytes.data(), bytes.count(), frameBytes == 2);

    SampleFormat format;
    format.bitsPerSample = uint8_t(8 * frameBytes);
    format.channels = 1;
    format.length = int32_t(frames);
    format.loopStart = int32_t(std::min(loopStart, frames));
    format.loopEnd = int32_t(std::min(loopEnd, frames));
    format.loopType = loopTypeOf(type);
    sample.data = new SampleData();
    return sample.data->setData(format, bytes.data(), int32_t(frames * frameBytes), LittleEndianSamples, 1) &&
           sample.data->finalise();
}

bool readSample(XmInput& input, const uint8_t* header, ModuleSample& sample, Array<uint8_t>& bytes) {
    sample.name = fieldText(header + xmSampleNameOffset, xmSampleNameLength);
    sample.volume = uint8_t(std::min<int32_t>(header[xmSampleVolumeOffset], xmMaxSampleVolume) * 255 / 64);
    sample.finetune = int8_t(header[xmSampleFinetuneOffset]);
    sample.extraA = int8_t(header[xmSampleRelativeNoteOffset]);
    sample.extraB = header[xmSamplePanningOffset];
    uint32_t length = word32(header + xmSampleLengthOffset);
    if (length == 0)
        return true;  // an empty sample keeps its settings but has no data
    return input.readGrowing(bytes, length) && makeSampleData(sample, header, bytes);
}

// An instrument: its header, then all its sample headers, then the data of
// each sample in turn. Its samples go to the end of the module's list.
bool readInstrument(XmInput& input, Module& module, Array<uint8_t>& bytes) {
    uint8_t header[xmInstrumentKnownSize];
    if (!input.readRecord(header, xmInstrumentKnownSize))
        return false;
    ModuleInstrument instrument;
    instrument.name = fieldText(header + xmInstrumentNameOffset, xmInstrumentNameLength);
    int32_t sampleCount = word16(header + xmInstrumentSampleCountOffset);
    if (sampleCount > xmMaxSamplesPerInstrument)
        return false;
    if (sampleCount > 0 && !readInstrumentSettings(header, instrument))
        return false;

    uint8_t sampleHeaders[xmMaxSamplesPerInstrument][xmSampleHeaderSize];
    int64_t headerGap = std::max<int64_t>(int64_t(word32(header + xmSampleHeaderSizeOffset)) - xmSampleHeaderSize, 0);
    for (int32_t i = 0; i < sampleCount; ++i)
        if (!input.read(sampleHeaders[i], xmSampleHeaderSize) || !input.skip(headerGap))
            return false;
    for (int32_t i = 0; i < sampleCount; ++i) {
        ModuleSample sample;
        if (!readSample(input, sampleHeaders[i], sample, bytes) || !module.samples.add(std::move(sample)) ||
            !instrument.sampleIndices.add(uint16_t(module.samples.count() - 1)))
            return false;
    }
    return module.instruments.add(std::move(instrument));
}

}  // namespace

bool loadXm(Module& module, Stream& stream, int32_t variant) {
    XmInput input(stream);
    uint8_t fixed[xmFixedHeaderSize];
    if (!input.read(fixed, xmFixedHeaderSize) || !isXmHeader(fixed))
        return false;
    module.reset();  // format type none until the last sample is in
    uint8_t song[xmSongHeaderSize];
    if (!input.readRecord(song, xmSongHeaderSize) || !songCountsFit(song) || !setUpSong(module, fixed, song))
        return false;
    Array<uint8_t> bytes;
    for (int32_t i = word16(song + xmPatternCountOffset); i > 0; --i)
        if (!readPattern(input, module, bytes))
            return false;
    for (int32_t i = word16(song + xmInstrumentCountOffset); i > 0; --i)
        if (!readInstrument(input, module, bytes))
            return false;
    // An order naming a pattern the file does not hold (trackers leave empty
    // patterns at the end of a song unsaved) is passed over in playback, not
    // played as silence: substitutePattern stays -1.
    module.formatType = FormatXm;
    module.playbackMode = variant != 0 ? variant : ModeXm;
    module.scanSubsongs();
    return true;
}

}  // namespace mod
