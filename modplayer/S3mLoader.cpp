// loadS3m: reads an S3M module (the Scream Tracker 3 layout, also written by
// Impulse Tracker and others) into a Module. Entered through loadModule.
//
// Instruments, patterns and sample data sit wherever their parapointers say,
// so the loader needs a seekable stream. It reads the header and its tables,
// every instrument header and every pattern's length, then checks that all
// those regions lie inside the file without overlapping one another; only
// then does it decode patterns and read PCM. Nothing is allocated from a
// count or a size before the file has been seen to hold the bytes, so a
// hostile header costs no more memory or time than its real length allows.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "modplayer/EffectCodes.h"
#include "modplayer/ModuleLoader.h"
#include "modplayer/S3mFormat.h"

namespace mod {

namespace {

uint16_t littleWord(const uint8_t* bytes) {
    return uint16_t(bytes[0] | bytes[1] << 8);
}

uint32_t littleDoubleWord(const uint8_t* bytes) {
    return uint32_t(littleWord(bytes)) | uint32_t(littleWord(bytes + 2)) << 16;
}

bool hasSignature(const uint8_t* header) {
    return header[s3mFileTypeOffset] == s3mModuleFileType &&
           std::memcmp(header + s3mSignatureOffset, "SCRM", 4) == 0;
}

// 8-bit text up to the first NUL; each byte is its own code point.
String byteText(const uint8_t* bytes, int32_t maxLength) {
    String text;
    for (int32_t i = 0; i < maxLength && bytes[i] != 0; ++i)
        text.append(bytes[i]);
    return text;
}

// The S3M as random-access bytes: offsets count from where its header starts.
class S3mFile {
public:
    explicit S3mFile(Stream& stream) : stream(stream) {}

    // Called with the header just read; fails on streams that cannot seek.
    bool open() {
        int64_t end = stream.size();
        start = stream.tell() - s3mHeaderSize;
        if (start < 0 || end < start + s3mHeaderSize)
            return false;
        length = end - start;
        return true;
    }

    int64_t size() const { return length; }
    bool holds(int64_t offset, int64_t count) const {
        return offset >= 0 && count >= 0 && offset <= length && count <= length - offset;
    }
    bool readAt(int64_t offset, void* buffer, int32_t count) {
        return holds(offset, count) && stream.seek(start + offset, SeekStart) &&
               stream.readExactly(buffer, count);
    }

private:
    Stream& stream;
    int64_t start = 0;
    int64_t length = 0;
};

// The parts of the file the loader will read. Real files never let two of
// them share bytes; a file that does is refused, which also keeps a few
// header bytes from standing for many copies of the same sample data.
class FileRegions {
public:
    explicit FileRegions(const S3mFile& file) : file(file) {}

    bool add(int64_t offset, int64_t count) {
        return file.holds(offset, count) && (count == 0 || regions.add(Region{offset, offset + count}));
    }

    bool disjoint() {
        std::sort(regions.begin(), regions.end(),
                  [](const Region& a, const Region& b) { return a.start < b.start; });
        for (int32_t i = 1; i < regions.count(); ++i)
            if (regions[i].start < regions[i - 1].end)
                return false;
        return true;
    }

private:
    struct Region {
        int64_t start, end;
    };
    const S3mFile& file;
    Array<Region> regions;
};

struct InstrumentHeader {
    uint8_t type = 0;
    uint8_t volume = 0;
    uint8_t packing = 0;
    uint8_t flags = 0;
    int64_t dataOffset = 0;
    uint32_t length = 0;  // frames
    uint32_t loopStart = 0;
    uint32_t loopEnd = 0;
    uint32_t c4Speed = 0;  // Hz: the rate at which note 48 plays
    uint8_t name[s3mInstrumentNameLength] = {};

    // AdLib instruments, empty slots and packed PCM (which no tracker in use
    // writes) load as silent entries.
    bool hasPcm() const { return type == s3mSampleInstrument && packing == 0 && length > 0; }
    int32_t channels() const { return flags & s3mSampleStereo ? 2 : 1; }
    int32_t bytesPerSample() const { return flags & s3mSample16Bit ? 2 : 1; }
    int64_t dataBytes() const { return hasPcm() ? int64_t(length) * channels() * bytesPerSample() : 0; }
};

struct PatternPlace {
    int64_t offset = 0;  // 0: the pattern is not stored and has 64 empty rows
    int32_t packedLength = 0;  // as its length word says: the region it claims
};

struct S3mLayout {
    explicit S3mLayout(const uint8_t* header) : header(header) {}

    uint16_t field(int32_t offset) const { return littleWord(header + offset); }
    int32_t orderCount() const { return field(s3mOrderCountOffset); }
    int32_t instrumentCount() const { return field(s3mInstrumentCountOffset); }
    int32_t storedPatternCount() const { return field(s3mPatternCountOffset); }
    bool hasPanningTable() const { return header[s3mPanningTableOffset] == s3mPanningTablePresent; }

    const uint8_t* orders() const { return tables.data(); }
    const uint8_t* instrumentPointers() const { return orders() + orderCount(); }
    const uint8_t* patternPointers() const { return instrumentPointers() + 2 * instrumentCount(); }
    const uint8_t* panningTable() const {
        return hasPanningTable() ? patternPointers() + 2 * storedPatternCount() : nullptr;
    }

    const uint8_t* header;
    Array<uint8_t> tables;  // orders, parapointers, panning table
    Array<InstrumentHeader> instruments;
    Array<PatternPlace> patterns;  // only those the order list can name
};

bool readTables(S3mFile& file, S3mLayout& layout, FileRegions& regions) {
    int64_t tableBytes = layout.orderCount() + 2 * (layout.instrumentCount() + layout.storedPatternCount()) +
                         (layout.hasPanningTable() ? s3mChannelSlots : 0);
    return regions.add(0, s3mHeaderSize + tableBytes) && layout.tables.resize(int32_t(tableBytes)) &&
           file.readAt(s3mHeaderSize, layout.tables.data(), int32_t(tableBytes));
}

InstrumentHeader parseInstrument(const uint8_t* bytes) {
    InstrumentHeader instrument;
    instrument.type = bytes[s3mInstrumentTypeOffset];
    uint32_t paragraphs = uint32_t(bytes[s3mSampleDataOffset]) << 16 | littleWord(bytes + s3mSampleDataOffset + 1);
    instrument.dataOffset = paragraphs * s3mParagraph;
    instrument.length = littleDoubleWord(bytes + s3mSampleLengthOffset);
    instrument.loopStart = littleDoubleWord(bytes + s3mLoopStartOffset);
    instrument.loopEnd = littleDoubleWord(bytes + s3mLoopEndOffset);
    instrument.volume = bytes[s3mVolumeOffset];
    instrument.packing = bytes[s3mPackingOffset];
    instrument.flags = bytes[s3mSampleFlagsOffset];
    // A zero rate means the tracker's default; SampleData and extraA hold 31 bits.
    constexpr uint32_t defaultC4Speed = 8363;
    uint32_t c4Speed = littleDoubleWord(bytes + s3mC4SpeedOffset);
    instrument.c4Speed = c4Speed == 0 ? defaultC4Speed : std::min<uint32_t>(c4Speed, INT32_MAX);
    std::memcpy(instrument.name, bytes + s3mInstrumentNameOffset, s3mInstrumentNameLength);
    return instrument;
}

bool readInstrumentHeaders(S3mFile& file, S3mLayout& layout, FileRegions& regions) {
    for (int32_t i = 0; i < layout.instrumentCount(); ++i) {
        int64_t offset = littleWord(layout.instrumentPointers() + 2 * i) * s3mParagraph;
        uint8_t bytes[s3mInstrumentHeaderSize];
        if (!regions.add(offset, s3mInstrumentHeaderSize) || !file.readAt(offset, bytes, s3mInstrumentHeaderSize))
            return false;
        InstrumentHeader instrument = parseInstrument(bytes);
        // SampleData counts its bytes in 32 bits.
        if (instrument.dataBytes() > INT32_MAX || !regions.add(instrument.dataOffset, instrument.dataBytes()) ||
            !layout.instruments.add(instrument))
            return false;
    }
    return true;
}

// Patterns past the 254th are never played: their bytes are not even read.
bool readPatternPlaces(S3mFile& file, S3mLayout& layout, FileRegions& regions) {
    int32_t count = std::min(layout.storedPatternCount(), s3mPlayablePatterns);
    for (int32_t i = 0; i < count; ++i) {
        PatternPlace place;
        place.offset = littleWord(layout.patternPointers() + 2 * i) * s3mParagraph;
        uint8_t lengthBytes[2];
        if (place.offset != 0) {
            if (!file.readAt(place.offset, lengthBytes, 2))
                return false;
            place.packedLength = std::max<int32_t>(littleWord(lengthBytes), 2);
            if (!regions.add(place.offset, place.packedLength))
                return false;
        }
        if (!layout.patterns.add(place))
            return false;
    }
    return true;
}

// Which channels play and where they sit. A channel counts up to the last
// one in use; unused and disabled channels in between keep their places
// but stay silent: their pattern entries are dropped, effects included.
struct ChannelLayout {
    int32_t count = 0;
    bool plays[s3mChannelSlots] = {};
    uint8_t panning[s3mChannelSlots] = {};
};

// The tracker's default positions, nibbles 3 and C, on the 0..255 scale
// (nibble * 17); AdLib and unused channels sit in the centre.
constexpr uint8_t panningLeft = 3 * 17;
constexpr uint8_t panningRight = 12 * 17;
constexpr uint8_t panningCentre = 128;

uint8_t channelPanning(uint8_t setting, const uint8_t* panningTable, int32_t channel) {
    if (panningTable && panningTable[channel] & s3mPanningEntryValid)
        return uint8_t((panningTable[channel] & 0x0F) * 17);
    uint8_t type = setting & ~s3mChannelDisabled;
    if (type < s3mFirstRightChannel)
        return panningLeft;
    return type < s3mFirstAdlibChannel ? panningRight : panningCentre;
}

ChannelLayout readChannels(const S3mLayout& layout) {
    ChannelLayout channels;
    bool stereo = layout.header[s3mMasterVolumeOffset] & s3mMasterStereo;
    for (int32_t i = 0; i < s3mChannelSlots; ++i) {
        uint8_t setting = layout.header[s3mChannelSettingsOffset + i];
        if (setting != s3mChannelUnused)
            channels.count = i + 1;
        channels.plays[i] = setting < s3mChannelDisabled;
        channels.panning[i] = stereo ? channelPanning(setting, layout.panningTable(), i) : panningCentre;
    }
    return channels;
}

String trackerName(uint16_t version) {
    static const char* const trackers[] = {nullptr, "Scream Tracker", "Imago Orpheus", "Impulse Tracker",
                                           "Schism Tracker", "OpenMPT", "BeRoTracker", "CreamTracker"};
    int32_t tracker = version >> 12;
    if (tracker == 0 || tracker >= int32_t(sizeof trackers / sizeof trackers[0]))
        return String::format("Unknown (S3M version %04X)", version);
    return String::format("%s %X.%02X", trackers[tracker], (version >> 8) & 0x0F, version & 0xFF);
}

void setUpSong(Module& module, const S3mLayout& layout, int32_t variant) {
    const uint8_t* header = layout.header;
    uint16_t version = layout.field(s3mVersionOffset);
    module.title = byteText(header, s3mTitleLength);
    module.trackerName = trackerName(version);
    module.playbackMode = variant == 0 ? ModeS3m : variant;
    module.usesAmigaPeriods = 1;
    module.globalVolume = uint8_t(std::min<int32_t>(header[s3mGlobalVolumeOffset], 64) * 255 / 64);
    module.fastVolumeSlides =
        version <= s3mLastFastSlideVersion || layout.field(s3mFlagsOffset) & s3mFlagFastVolumeSlides;
    uint8_t speed = header[s3mSpeedOffset], tempo = header[s3mTempoOffset];
    module.initialSpeed = speed == 0 ? 6 : speed;
    // Stored tempos below 32, which the tempo effect cannot set, play at 32.
    module.initialTempo = tempo == 0 ? 125 : std::max<uint8_t>(tempo, 32);
    module.restartPosition = 0;
}

bool setUpChannels(Module& module, const ChannelLayout& channels, int32_t instrumentCount) {
    module.channelCount = channels.count;
    for (int32_t i = 0; i < channels.count; ++i)
        if (!module.channelPanning.add(channels.panning[i]) ||
            !module.channelMap.add(instrumentCount > 0 ? i % instrumentCount : 0))
            return false;
    return true;
}

// Every stored entry, the markers included: 255 ends the song and 254 is
// passed over where the playback mode honours them, and the song length
// counts them all, so that a song after an end marker is found by the
// sub-song scan.
bool readOrders(Module& module, const S3mLayout& layout) {
    for (int32_t i = 0; i < layout.orderCount(); ++i)
        if (!module.orders.add(layout.orders()[i]))
            return false;
    module.songLength = layout.orderCount();
    return true;
}

uint8_t decodeNote(uint8_t stored) {
    if (stored == s3mNoteCut)
        return noteCut;
    int32_t octave = stored >> 4, semitone = stored & 0x0F;
    if (semitone > 11 || octave > 9)  // 255 (no note) among them
        return noNote;
    return uint8_t(octave * 12 + semitone);
}

constexpr uint8_t notAnS3mEffect = 0xFF;

// Indexed by the stored command: 1 is A, 26 is Z. M, N, P and Z belong to
// other trackers' S3M extensions that the tracker itself ignores.
constexpr uint8_t effectForCommand[27] = {
    notAnS3mEffect,
    EffectS3mSetSpeed,                   // A
    EffectPositionJump,                  // B
    EffectPatternBreak,                  // C
    EffectS3mVolumeSlide,                // D
    EffectS3mPortamentoDown,             // E
    EffectS3mPortamentoUp,               // F
    EffectTonePortamento,                // G
    EffectVibrato,                       // H
    EffectTremor,                        // I
    EffectS3mArpeggio,                   // J
    EffectS3mVibratoVolumeSlide,         // K
    EffectS3mTonePortamentoVolumeSlide,  // L
    notAnS3mEffect,                      // M
    notAnS3mEffect,                      // N
    EffectSampleOffset,                  // O
    notAnS3mEffect,                      // P
    EffectMultiRetrigger,                // Q
    EffectTremolo,                       // R
    EffectS3mExtended,                   // S
    EffectS3mSetTempo,                   // T
    EffectS3mFineVibrato,                // U
    EffectSetGlobalVolume,               // V
    EffectS3mGlobalVolumeSlide,          // W
    EffectS3mSetPanning,                 // X
    EffectS3mPanbrello,                  // Y
    notAnS3mEffect,                      // Z
};

// Bytes that follow an entry's first byte.
int32_t entryFieldBytes(uint8_t what) {
    return (what & s3mEntryHasNote ? 2 : 0) + (what & s3mEntryHasVolume ? 1 : 0) + (what & s3mEntryHasEffect ? 2 : 0);
}

// The volume column: 0..64 sets the volume (more is 64); 128..192 is the
// extension that sets the panning (0..64 across), kept here to the nearest
// nibble.
uint8_t volumeCommand(uint8_t stored) {
    constexpr uint8_t panningBase = 128, panningTop = 192;
    if (stored >= panningBase && stored <= panningTop)
        return uint8_t(volumeSetPanning | ((stored - panningBase) * 15 + 32) / 64);
    return uint8_t(volumeSetBase + std::min<uint8_t>(stored, 64));
}

// Fills the fields an entry carries. A row may name a channel twice (junk
// read past a short length word does): the later entry's fields win, the
// others stay, as the players read it.
void decodeEntry(uint8_t what, const uint8_t* fields, PatternCell& cell) {
    if (what & s3mEntryHasNote) {
        cell.note = decodeNote(fields[0]);
        cell.instrument = fields[1];
        fields += 2;
    }
    if (what & s3mEntryHasVolume)
        cell.volume = volumeCommand(*fields++);
    if (what & s3mEntryHasEffect) {
        uint8_t effect = fields[0] < sizeof effectForCommand ? effectForCommand[fields[0]] : notAnS3mEffect;
        bool known = effect != notAnS3mEffect;
        cell.effect = known ? effect : 0;
        cell.parameter = known ? fields[1] : 0;
    }
}

// Rows missing at the end of the file stay empty, and so does an entry cut
// short by it.
void decodePattern(const uint8_t* packed, int32_t count, const ChannelLayout& channels, ModulePattern& pattern) {
    const uint8_t* end = packed + count;
    for (int32_t row = 0; row < s3mRowsPerPattern && packed < end;) {
        uint8_t what = *packed++;
        if (what == 0) {
            ++row;
            continue;
        }
        int32_t fieldBytes = entryFieldBytes(what);
        if (end - packed < fieldBytes)
            return;
        int32_t channel = what & s3mEntryChannelMask;
        if (channel < channels.count && channels.plays[channel])
            decodeEntry(what, packed, pattern[row][channel]);
        packed += fieldBytes;
    }
}

// A pattern's rows are read until the 64th ends, whatever its length word
// says, as the players do: some trackers wrote lengths that cut the last
// row short, and the bytes after it (often the next pattern's) complete it.
// The rows can take no more than this many bytes.
constexpr int32_t s3mLongestPackedPattern = s3mRowsPerPattern * (1 + s3mChannelSlots * 6);

bool readPatterns(Module& module, S3mFile& file, const S3mLayout& layout, const ChannelLayout& channels) {
    Array<uint8_t> packed;
    for (const PatternPlace& place : layout.patterns) {
        ModulePattern pattern;
        if (!pattern.resize(s3mRowsPerPattern))
            return false;
        for (PatternRow& row : pattern)
            if (!row.resize(channels.count))
                return false;
        int64_t rowsStart = place.offset + 2;
        int32_t count = int32_t(std::min<int64_t>(s3mLongestPackedPattern, file.size() - rowsStart));
        if (place.offset != 0 && count > 0) {
            if (!packed.resize(count) || !file.readAt(rowsStart, packed.data(), count))
                return false;
            decodePattern(packed.data(), count, channels, pattern);
        }
        if (!module.patterns.add(std::move(pattern)))
            return false;
    }
    return true;
}

// Stereo samples store all left frames, then all right frames.
bool interleaveStereo(const Array<uint8_t>& blocks, int32_t bytesPerSample, Array<uint8_t>& frames) {
    int32_t half = blocks.count() / 2;
    if (!frames.resize(blocks.count()))
        return false;
    for (int32_t at = 0; at < half; at += bytesPerSample) {
        std::memcpy(&frames[2 * at], &blocks[at], bytesPerSample);
        std::memcpy(&frames[2 * at + bytesPerSample], &blocks[half + at], bytesPerSample);
    }
    return true;
}

struct PcmBuffers {
    Array<uint8_t> stored;
    Array<uint8_t> interleaved;
};

bool readPcm(S3mFile& file, const InstrumentHeader& header, bool signedData, PcmBuffers& buffers,
             SharedRef<SampleData>& data) {
    int32_t byteCount = int32_t(header.dataBytes());
    if (!buffers.stored.resize(byteCount) || !file.readAt(header.dataOffset, buffers.stored.data(), byteCount))
        return false;
    const Array<uint8_t>* frames = &buffers.stored;
    if (header.channels() == 2) {
        if (!interleaveStereo(buffers.stored, header.bytesPerSample(), buffers.interleaved))
            return false;
        frames = &buffers.interleaved;
    }
    SampleFormat format;
    format.sampleRate = header.c4Speed;
    format.bitsPerSample = uint8_t(8 * header.bytesPerSample());
    format.channels = uint8_t(header.channels());
    format.length = int32_t(header.length);
    format.loopStart = int32_t(std::min(header.loopStart, header.length));
    format.loopEnd = int32_t(std::min(header.loopEnd, header.length));
    format.loopType = header.flags & s3mSampleLooped ? LoopForward : LoopNone;
    data = new SampleData();
    return data->setData(format, frames->data(), byteCount, LittleEndianSamples, signedData ? 1 : 0) &&
           data->finalise();
}

// One instrument holding one sample per S3M instrument, silent ones included.
bool readInstruments(Module& module, S3mFile& file, const S3mLayout& layout) {
    bool signedData = layout.field(s3mSampleFormatOffset) == s3mSignedSamples;
    PcmBuffers buffers;
    for (const InstrumentHeader& header : layout.instruments) {
        ModuleInstrument instrument;
        instrument.name = byteText(header.name, s3mInstrumentNameLength);
        ModuleSample sample;
        sample.name = instrument.name;
        sample.volume = uint8_t(std::min<int32_t>(header.volume, 64) * 255 / 64);
        sample.extraA = int32_t(header.c4Speed);
        sample.extraB = -1;
        if (header.hasPcm() && !readPcm(file, header, signedData, buffers, sample.data))
            return false;
        if (!module.samples.add(std::move(sample)) ||
            !instrument.sampleIndices.add(uint16_t(module.samples.count() - 1)) ||
            !module.instruments.add(std::move(instrument)))
            return false;
    }
    return true;
}

// A longer order list than the trackers write is refused: the sub-song
// scan's cost grows with the square of its length (65535 entries: seconds).
bool readLayout(S3mFile& file, S3mLayout& layout) {
    FileRegions regions(file);
    return layout.orderCount() <= s3mMaxOrders && readTables(file, layout, regions) &&
           readInstrumentHeaders(file, layout, regions) && readPatternPlaces(file, layout, regions) &&
           regions.disjoint();
}

}  // namespace

bool loadS3m(Module& module, Stream& stream, int32_t variant) {
    uint8_t header[s3mHeaderSize];
    if (!stream.readExactly(header, s3mHeaderSize) || !hasSignature(header))
        return false;
    module.reset();
    module.formatType = FormatNone;
    S3mFile file(stream);
    S3mLayout layout(header);
    if (!file.open() || !readLayout(file, layout))
        return false;
    ChannelLayout channels = readChannels(layout);
    setUpSong(module, layout, variant);
    if (!setUpChannels(module, channels, layout.instrumentCount()) || !readOrders(module, layout) ||
        !readPatterns(module, file, layout, channels) || !readInstruments(module, file, layout))
        return false;
    module.formatType = FormatS3m;
    module.scanSubsongs();
    return true;
}

}  // namespace mod
