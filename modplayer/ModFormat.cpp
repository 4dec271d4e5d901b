// ModFormat: the channel-tag table and the period-to-note lookup.
#include "modplayer/ModFormat.h"

#include <array>
#include <cstring>

#include "modplayer/PatternCell.h"

namespace mod {

namespace {

struct ChannelTag {
    char text[4];
    uint8_t channels;
};

// Searched in order; the empty entry ends it.
constexpr std::array<ChannelTag, modChannelTagCount + 1> buildChannelTags() {
    std::array<ChannelTag, modChannelTagCount + 1> tags{};
    int n = 0;
    tags[n++] = {{'M', '.', 'K', '.'}, 4};
    tags[n++] = {{'M', '!', 'K', '!'}, 4};
    tags[n++] = {{'O', 'K', 'T', 'A'}, 8};
    tags[n++] = {{'O', 'C', 'T', 'A'}, 8};
    for (char d = '1'; d <= '9'; ++d)
        tags[n++] = {{'F', 'L', 'T', d}, uint8_t(d - '0')};
    for (char d = '1'; d <= '9'; ++d)
        tags[n++] = {{'T', 'D', 'Z', d}, uint8_t(d - '0')};
    for (char d = '1'; d <= '9'; ++d)
        tags[n++] = {{d, 'C', 'H', 'N'}, uint8_t(d - '0')};
    for (int count = 1; count <= 32; ++count) {
        char tens = char('0' + count / 10), units = char('0' + count % 10);
        tags[n++] = {{tens, units, 'C', 'H'}, uint8_t(count)};
        tags[n++] = {{tens, units, 'C', 'N'}, uint8_t(count)};
    }
    return tags;
}

constexpr auto channelTags = buildChannelTags();
static_assert(channelTags[modChannelTagCount - 1].channels == 32 &&
              channelTags[modChannelTagCount].channels == 0);

// Periods of notes 9 to 104, twelve to a row.
constexpr int32_t firstTableNote = 9;
constexpr uint16_t notePeriods[96] = {
    4064, 3840, 3624, 3424, 3232, 3048, 2880, 2712, 2560, 2416, 2280, 2152,
    2032, 1920, 1812, 1712, 1616, 1524, 1440, 1356, 1280, 1208, 1140, 1076,
    1016, 960,  906,  856,  808,  762,  720,  678,  640,  604,  570,  538,
    508,  480,  453,  428,  404,  381,  360,  339,  320,  302,  285,  269,
    254,  240,  226,  214,  202,  190,  180,  170,  160,  151,  143,  135,
    127,  120,  113,  107,  101,  95,   90,   85,   80,   75,   71,   67,
    63,   60,   56,   53,   50,   47,   45,   42,   40,   37,   35,   33,
    31,   30,   28,   26,   25,   23,   22,   21,   20,   18,   17,   16,
};

uint8_t nearestNote(int32_t period) {
    int32_t best = 0;
    int32_t bestDistance = INT32_MAX;
    for (int32_t i = 0; i < 96; ++i) {
        int32_t distance = period > notePeriods[i] ? period - notePeriods[i] : notePeriods[i] - period;
        if (distance < bestDistance) {  // strict: the earlier entry keeps a tie
            best = i;
            bestDistance = distance;
        }
    }
    return uint8_t(firstTableNote + best);
}

struct PeriodNotes {
    uint8_t notes[4096];
    PeriodNotes() {
        notes[0] = noNote;
        for (int32_t period = 1; period < 4096; ++period)
            notes[period] = nearestNote(period);
    }
};

}  // namespace

int32_t modChannelsForTag(const uint8_t* tag) {
    for (const ChannelTag& entry : channelTags)
        if (entry.channels && std::memcmp(entry.text, tag, 4) == 0)
            return entry.channels;
    return 0;
}

uint8_t modNoteForPeriod(uint32_t period) {
    static const PeriodNotes lookup;
    return lookup.notes[period & 0x0FFF];
}

}  // namespace mod
