// loadMod: reads a MOD module (31-sample tagged form, or the older untagged
// 15-sample form) into a Module. Entered through loadModule.
#include <cstring>
#include <utility>

#include "modplayer/ModFormat.h"
#include "modplayer/ModuleLoader.h"

namespace mod {

namespace {

constexpr uint8_t effectPortamentoUp = 1;
constexpr uint8_t effectPortamentoDown = 2;
constexpr uint8_t effectTonePortamento = 3;
constexpr uint8_t effectVibrato = 4;
constexpr uint8_t effectToneSlide = 5;
constexpr uint8_t effectVibratoSlide = 6;
constexpr uint8_t effectVolumeSlide = 10;

struct ModLayout {
    uint8_t header[modHeaderSize] = {};  // always in the tagged layout
    int32_t channels = 4;
    int32_t sampleSlots = modSampleSlots;
};

// Moves a 600-byte untagged header into the tagged layout: 15 sample headers,
// 16 empty ones, then song length, restart byte and orders.
void widenOldHeader(const uint8_t* old, uint8_t* header) {
    constexpr int32_t oldHeadersEnd = modTitleLength + modOldSampleSlots * modSampleHeaderSize;
    std::memset(header, 0, modHeaderSize);
    std::memcpy(header, old, oldHeadersEnd);
    std::memcpy(header + modSongLengthOffset, old + oldHeadersEnd, 2 + modOrderCount);
}

bool readLayout(Stream& stream, ModLayout& layout, int32_t& variant) {
    if (!stream.readExactly(layout.header, modHeaderSize))
        return false;
    int32_t channels = modChannelsForTag(layout.header + modTagOffset);
    if (channels > 0) {
        layout.channels = channels;
        if (variant == 0)
            variant = ModeMod31;
        return true;
    }
    uint8_t old[modOldHeaderSize];
    if (!stream.seek(-modHeaderSize, SeekCurrent) || !stream.readExactly(old, modOldHeaderSize))
        return false;
    widenOldHeader(old, layout.header);
    layout.sampleSlots = modOldSampleSlots;
    if (variant == 0)
        variant = ModeMod15;
    return true;
}

// Left, right, right, left, repeating; the XM-style variant centres all.
bool setUpChannels(Module& module, const ModLayout& layout, int32_t variant) {
    module.channelCount = layout.channels;
    for (int32_t i = 0; i < layout.channels; ++i) {
        uint8_t panning = (i % 4 == 0 || i % 4 == 3) ? 48 : 208;
        if (variant == ModeXm)
            panning = 128;
        if (!module.channelPanning.add(panning) || !module.channelMap.add(i % layout.sampleSlots))
            return false;
    }
    return true;
}

// All 128 entries count towards the pattern count, even those past the song.
int32_t readOrders(Module& module, const uint8_t* header) {
    int32_t largest = 0;
    for (int32_t i = 0; i < modOrderCount; ++i) {
        uint8_t pattern = header[modOrdersOffset + i];
        if (!module.orders.add(pattern))
            return -1;
        if (pattern > largest)
            largest = pattern;
    }
    module.songLength = header[modSongLengthOffset];
    module.restartPosition = 0;  // the restart byte is ignored on purpose
    return largest + 1;
}

// The sequencer never sees these effects without a parameter: a zero
// parameter turns them into their parameterless relatives here.
uint8_t rewriteEffect(uint8_t effect, uint8_t parameter) {
    if (parameter != 0)
        return effect;
    switch (effect) {
    case effectPortamentoUp:
    case effectPortamentoDown:
    case effectVolumeSlide:
        return 0;
    case effectToneSlide:
        return effectTonePortamento;
    case effectVibratoSlide:
        return effectVibrato;
    default:
        return effect;
    }
}

PatternCell decodeCell(const uint8_t* b) {
    PatternCell cell;
    cell.note = modNoteForPeriod(uint32_t(b[0] & 0x0F) << 8 | b[1]);
    cell.instrument = uint8_t((b[0] & 0xF0) | (b[2] >> 4));
    cell.parameter = b[3];
    cell.effect = rewriteEffect(b[2] & 0x0F, cell.parameter);
    return cell;
}

bool readPattern(Module& module, Stream& stream) {
    uint8_t bytes[32 * modRowsPerPattern * modCellSize];
    int32_t channels = module.channelCount;
    if (!stream.readExactly(bytes, channels * modRowsPerPattern * modCellSize))
        return false;
    ModulePattern pattern;
    if (!pattern.resize(modRowsPerPattern))
        return false;
    const uint8_t* cellBytes = bytes;
    for (PatternRow& row : pattern) {
        if (!row.resize(channels))
            return false;
        for (PatternCell& cell : row) {
            cell = decodeCell(cellBytes);
            cellBytes += modCellSize;
        }
    }
    return module.patterns.add(std::move(pattern));
}

// 8-bit text up to the first NUL; each byte is its own code point.
String byteText(const uint8_t* bytes, int32_t maxLength) {
    uint32_t codePoints[modSampleNameLength];
    int32_t length = 0;
    while (length < maxLength && bytes[length] != 0) {
        codePoints[length] = bytes[length];
        ++length;
    }
    return String::fromCodePoints(codePoints, length);
}

uint32_t bigEndianWord(const uint8_t* bytes) {
    return uint32_t(bytes[0]) << 8 | bytes[1];
}

bool makeSample(ModuleSample& sample, const uint8_t* header, const Array<uint8_t>& bytes) {
    uint32_t loopStartWords = bigEndianWord(header + 26);
    uint32_t loopLengthWords = bigEndianWord(header + 28);
    uint8_t volume = header[25] > 64 ? 64 : header[25];
    sample.volume = uint8_t(volume * 255 / 64);
    int32_t finetuneNibble = header[24] & 0x0F;  // signed 4-bit: 8..15 mean -8..-1
    sample.finetune = int8_t((finetuneNibble >= 8 ? finetuneNibble - 16 : finetuneNibble) * 16);

    SampleFormat format;
    format.bitsPerSample = 8;
    format.channels = 1;
    format.length = bytes.count();
    format.loopStart = int32_t(loopStartWords * 2);
    format.loopEnd = int32_t((loopStartWords + loopLengthWords) * 2);
    format.loopType = loopLengthWords > 1 ? LoopForward : LoopNone;
    sample.data = new SampleData();
    return sample.data->setData(format, bytes.data(), bytes.count(), LittleEndianSamples, 1) &&
           sample.data->finalise();
}

bool readInstrument(Module& module, Stream& stream, const uint8_t* header, Array<uint8_t>& bytes) {
    ModuleInstrument instrument;
    instrument.name = byteText(header, modSampleNameLength);
    int32_t byteCount = int32_t(bigEndianWord(header + 22) * 2);
    if (byteCount > 0) {
        if (!bytes.resize(byteCount) || !stream.readExactly(bytes.data(), byteCount))
            return false;
        ModuleSample sample;
        sample.name = instrument.name;
        if (!makeSample(sample, header, bytes) || !module.samples.add(std::move(sample)) ||
            !instrument.sampleIndices.add(uint16_t(module.samples.count() - 1)))
            return false;
    }
    return module.instruments.add(std::move(instrument));
}

bool readInstruments(Module& module, Stream& stream, const uint8_t* header) {
    Array<uint8_t> bytes;
    module.samples.release();
    for (int32_t slot = 0; slot < modSampleSlots; ++slot) {
        const uint8_t* sampleHeader = header + modTitleLength + slot * modSampleHeaderSize;
        if (!readInstrument(module, stream, sampleHeader, bytes))
            return false;
    }
    return true;
}

}  // namespace

bool loadMod(Module& module, Stream& stream, int32_t variant) {
    module.reset();
    module.formatType = FormatNone;
    ModLayout layout;
    if (!readLayout(stream, layout, variant) || !setUpChannels(module, layout, variant))
        return false;
    int32_t patternCount = readOrders(module, layout.header);
    if (patternCount < 0)
        return false;
    for (int32_t i = 0; i < patternCount; ++i)
        if (!readPattern(module, stream))
            return false;
    module.title = byteText(layout.header, modTitleLength);
    module.trackerName = "Unknown (Amiga Module)";
    if (!readInstruments(module, stream, layout.header))
        return false;
    module.formatType = FormatMod;
    module.usesAmigaPeriods = 1;
    module.playbackMode = variant;
    module.scanSubsongs();
    return true;
}

}  // namespace mod
