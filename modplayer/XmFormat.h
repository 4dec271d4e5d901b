// XmFormat: facts of the XM file layout (format version 0x0104) shared by the
// XM loader and its tests: field offsets, record sizes and the limits beyond
// which a file is refused. All words are little-endian.
//
// A file is the fixed header, the song header (counts, flags and the order
// table), the patterns, then the instruments, each followed by its sample
// headers and then its samples' delta-coded PCM. Every variable record starts
// with its own size, counted from that size field; fields a record does not
// reach read as zero, and bytes beyond the fields we know are skipped.
#pragma once

#include <cstdint>

namespace mod {

// Fixed header: everything before the song header's size field.
constexpr char xmIdText[] = "Extended Module: ";
constexpr char xmIdTextLowerCase[] = "Extended module: ";  // written by tools that followed early notes
constexpr int32_t xmIdLength = 17;
constexpr int32_t xmTitleOffset = 17;
constexpr int32_t xmTitleLength = 20;
constexpr int32_t xmTrackerNameOffset = 38;
constexpr int32_t xmTrackerNameLength = 20;
constexpr int32_t xmVersionOffset = 58;
constexpr int32_t xmFixedHeaderSize = 60;
constexpr uint16_t xmVersion = 0x0104;

// Song header, offsets from its size field at file offset 60.
constexpr int32_t xmSongLengthOffset = 4;
constexpr int32_t xmRestartOffset = 6;
constexpr int32_t xmChannelsOffset = 8;
constexpr int32_t xmPatternCountOffset = 10;
constexpr int32_t xmInstrumentCountOffset = 12;
constexpr int32_t xmFlagsOffset = 14;
constexpr int32_t xmSpeedOffset = 16;
constexpr int32_t xmTempoOffset = 18;
constexpr int32_t xmOrdersOffset = 20;
constexpr int32_t xmMaxOrders = 256;
constexpr int32_t xmSongHeaderSize = xmOrdersOffset + xmMaxOrders;  // 276, as trackers write it
constexpr uint16_t xmLinearFrequencies = 1;  // flags bit 0; clear: Amiga periods

// Pattern header, offsets from its size field.
constexpr int32_t xmPatternRowsOffset = 5;
constexpr int32_t xmPatternPackedSizeOffset = 7;
constexpr int32_t xmPatternHeaderSize = 9;

// Packed cells: a first byte with bit 7 set says which of the five fields
// follow; otherwise it is the note and the other four follow.
constexpr uint8_t xmPackedCell = 0x80;
constexpr uint8_t xmHasNote = 0x01;
constexpr uint8_t xmHasInstrument = 0x02;
constexpr uint8_t xmHasVolume = 0x04;
constexpr uint8_t xmHasEffect = 0x08;
constexpr uint8_t xmHasParameter = 0x10;
constexpr uint8_t xmKeyOffNote = 97;  // notes 1..96 are C-0 .. B-7
constexpr uint8_t xmLastEffect = 0x23;  // Z; effect numbers go 0..9, A..Z

// Instrument header, offsets from its size field.
constexpr int32_t xmInstrumentNameOffset = 4;
constexpr int32_t xmInstrumentNameLength = 22;
constexpr int32_t xmInstrumentSampleCountOffset = 27;
constexpr int32_t xmSampleHeaderSizeOffset = 29;
constexpr int32_t xmNoteMapOffset = 33;
constexpr int32_t xmNoteMapLength = 96;
constexpr int32_t xmVolumeEnvelopeOffset = 129;   // 12 points of (tick, value) words
constexpr int32_t xmPanningEnvelopeOffset = 177;
constexpr int32_t xmVolumePointCountOffset = 225;
constexpr int32_t xmPanningPointCountOffset = 226;
constexpr int32_t xmVolumeSustainOffset = 227;    // then loop start, loop end
constexpr int32_t xmPanningSustainOffset = 230;   // then loop start, loop end
constexpr int32_t xmVolumeFlagsOffset = 233;
constexpr int32_t xmPanningFlagsOffset = 234;
constexpr int32_t xmVibratoOffset = 235;          // type, sweep, depth, rate
constexpr int32_t xmFadeoutOffset = 239;
constexpr int32_t xmInstrumentKnownSize = 241;    // trackers write 263: reserved bytes follow
constexpr int32_t xmEnvelopePoints = 12;
constexpr int32_t xmEnvelopeMaxValue = 64;

// Sample header, 40 bytes, one per sample of the instrument.
constexpr int32_t xmSampleLengthOffset = 0;  // lengths and loop in bytes
constexpr int32_t xmSampleLoopStartOffset = 4;
constexpr int32_t xmSampleLoopLengthOffset = 8;
constexpr int32_t xmSampleVolumeOffset = 12;
constexpr int32_t xmSampleFinetuneOffset = 13;
constexpr int32_t xmSampleTypeOffset = 14;
constexpr int32_t xmSamplePanningOffset = 15;
constexpr int32_t xmSampleRelativeNoteOffset = 16;
constexpr int32_t xmSampleNameOffset = 18;
constexpr int32_t xmSampleNameLength = 22;
constexpr int32_t xmSampleHeaderSize = 40;
constexpr uint8_t xmLoopMask = 0x03;      // 0 none, 1 forward, 2 (and 3) ping-pong
constexpr uint8_t xmSixteenBit = 0x10;
constexpr int32_t xmMaxSampleVolume = 64;

// Limits: beyond them a file is refused before anything is allocated for it.
constexpr int32_t xmMaxChannels = 64;
constexpr int32_t xmMaxPatterns = 256;
constexpr int32_t xmMaxRows = 256;
constexpr int32_t xmMaxInstruments = 255;  // PatternCell::instrument is a byte
constexpr int32_t xmMaxSamplesPerInstrument = 16;

}  // namespace mod
