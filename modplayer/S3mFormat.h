// S3mFormat: facts of the S3M file layout shared by the S3M loader and its
// tests: the file header, the instrument header, the channel settings and
// the packed pattern bytes.
//
// Every multi-byte field is little-endian. Instruments, patterns and sample
// data are placed by parapointers: 16-bit (sample data: 24-bit) counts of
// 16-byte paragraphs from the start of the file.
#pragma once

#include <cstdint>

namespace mod {

constexpr int64_t s3mParagraph = 16;

// The file header; the order list, the instrument parapointers, the pattern
// parapointers and (optionally) the panning table follow it in that order.
constexpr int32_t s3mHeaderSize = 96;
constexpr int32_t s3mTitleLength = 28;
constexpr int32_t s3mFileTypeOffset = 29;
constexpr uint8_t s3mModuleFileType = 16;
constexpr int32_t s3mOrderCountOffset = 32;
constexpr int32_t s3mInstrumentCountOffset = 34;
constexpr int32_t s3mPatternCountOffset = 36;
constexpr int32_t s3mFlagsOffset = 38;
constexpr int32_t s3mVersionOffset = 40;       // tracker in the top nibble, its version below
constexpr int32_t s3mSampleFormatOffset = 42;  // 1 signed PCM, 2 unsigned
constexpr int32_t s3mSignatureOffset = 44;     // "SCRM"
constexpr int32_t s3mGlobalVolumeOffset = 48;  // 0..64
constexpr int32_t s3mSpeedOffset = 49;
constexpr int32_t s3mTempoOffset = 50;
constexpr int32_t s3mMasterVolumeOffset = 51;  // bit 7: stereo
constexpr int32_t s3mPanningTableOffset = 53;  // s3mPanningTablePresent: the table is there
constexpr int32_t s3mChannelSettingsOffset = 64;
constexpr int32_t s3mChannelSlots = 32;

constexpr uint16_t s3mFlagFastVolumeSlides = 64;
constexpr uint16_t s3mLastFastSlideVersion = 0x1300;  // up to here slides run on every tick
constexpr uint8_t s3mSignedSamples = 1;
constexpr uint8_t s3mMasterStereo = 0x80;
constexpr uint8_t s3mPanningTablePresent = 252;
constexpr uint8_t s3mPanningEntryValid = 0x20;  // the entry's low nibble is the channel's panning

// Channel settings: 255 unused; bit 7 disabled; the low seven bits give the
// channel's type: 0..7 left, 8..15 right, 16 and up AdLib.
constexpr uint8_t s3mChannelUnused = 255;
constexpr uint8_t s3mChannelDisabled = 0x80;
constexpr uint8_t s3mFirstRightChannel = 8;
constexpr uint8_t s3mFirstAdlibChannel = 16;

// The 80-byte instrument header.
constexpr int32_t s3mInstrumentHeaderSize = 80;
constexpr int32_t s3mInstrumentTypeOffset = 0;  // 0 empty, 1 sample, 2 and up AdLib
constexpr int32_t s3mSampleDataOffset = 13;     // paragraphs: a high byte, then the low word
constexpr int32_t s3mSampleLengthOffset = 16;   // frames
constexpr int32_t s3mLoopStartOffset = 20;
constexpr int32_t s3mLoopEndOffset = 24;        // the frame after the loop
constexpr int32_t s3mVolumeOffset = 28;         // 0..64
constexpr int32_t s3mPackingOffset = 30;        // 0: plain PCM
constexpr int32_t s3mSampleFlagsOffset = 31;
constexpr int32_t s3mC4SpeedOffset = 32;        // Hz
constexpr int32_t s3mInstrumentNameOffset = 48;
constexpr int32_t s3mInstrumentNameLength = 28;

constexpr uint8_t s3mSampleInstrument = 1;
constexpr uint8_t s3mSampleLooped = 1;
constexpr uint8_t s3mSampleStereo = 2;  // the left channel's frames, then the right's
constexpr uint8_t s3mSample16Bit = 4;

// Packed patterns: a word giving the packed length (the word included),
// then 64 rows, each a run of entries closed by a 0 byte. An entry's first
// byte names the channel in its low bits and says which fields follow:
// note and instrument, volume, effect and parameter.
constexpr int32_t s3mRowsPerPattern = 64;
constexpr uint8_t s3mEntryChannelMask = 31;
constexpr uint8_t s3mEntryHasNote = 32;
constexpr uint8_t s3mEntryHasVolume = 64;
constexpr uint8_t s3mEntryHasEffect = 128;

// Note bytes: octave in the high nibble, semitone 0..11 in the low one.
constexpr uint8_t s3mNoteCut = 254;
constexpr uint8_t s3mNoNote = 255;

// The order list can name patterns 0..253 only (254 and 255 are markers),
// and the trackers that write S3M keep at most 256 entries in it.
constexpr int32_t s3mPlayablePatterns = 254;
constexpr int32_t s3mMaxOrders = 256;

}  // namespace mod
