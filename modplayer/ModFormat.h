// ModFormat: facts of the MOD file layout shared by the MOD loader and its
// tests: header offsets, the channel tags and the period-to-note lookup.
#pragma once

#include <cstdint>

namespace mod {

constexpr int32_t modTitleLength = 20;
constexpr int32_t modSampleHeaderSize = 30;
constexpr int32_t modSampleNameLength = 22;
constexpr int32_t modSampleSlots = 31;
constexpr int32_t modOldSampleSlots = 15;
constexpr int32_t modOrderCount = 128;
constexpr int32_t modSongLengthOffset = 950;
constexpr int32_t modOrdersOffset = 952;
constexpr int32_t modTagOffset = 1080;
constexpr int32_t modHeaderSize = 1084;  // tagged form, up to the first pattern
constexpr int32_t modOldHeaderSize = 600;  // untagged 15-sample form
constexpr int32_t modRowsPerPattern = 64;
constexpr int32_t modCellSize = 4;
constexpr int32_t modChannelTagCount = 95;

// Channel count of a format tag (the four bytes at offset 1080), 0 when the
// tag is not one of the 95 known ones.
int32_t modChannelsForTag(const uint8_t* tag);

// Note of a 12-bit Amiga period: the nearest of the 96 table periods (the
// larger period on a tie); period 0 gives noNote.
uint8_t modNoteForPeriod(uint32_t period);

}  // namespace mod
