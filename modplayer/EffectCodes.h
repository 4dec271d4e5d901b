// EffectCodes: the one vocabulary of PatternCell's note, volume-column and
// effect bytes that the MOD, S3M and XM loaders write and the sequencer plays.
//
// Effect codes 0x00..0x0F are the ProTracker effects, numbered as MOD and XM
// files store them; 0x10..0x23 are XM's letter effects, numbered as XM stores
// them (G = 0x10 ... Z = 0x23). An S3M effect takes the shared code when it
// does the same thing with the same parameter (the sequencer still applies
// the tracker's own memory and timing rules by module format); the S3M
// effects whose parameters read differently get codes of their own from 0x30.
#pragma once

#include <cstdint>

namespace mod {

// PatternCell::note beyond the semitones 0..127 (C at multiples of 12,
// note 48 is C-4: Amiga period 428, XM note 49, S3M octave 4).
constexpr uint8_t noteKeyOff = 254;  // XM note 97: release the key (envelopes go on)
constexpr uint8_t noteCut = 253;     // S3M "^^": stop the voice at once
// noNote (255) lives in PatternCell.h.

enum Effect : uint8_t {
    // ProTracker effects (MOD, XM). A zero parameter means "reuse the last
    // one" only where the tracker says so (XM: 1, 2, 3, 4, 5, 6, A and more).
    EffectArpeggio = 0x00,           // 0xy: base note, +x, +y semitones by tick; 000 = no effect
    EffectPortamentoUp = 0x01,       // 1xx: period down xx per tick after the first
    EffectPortamentoDown = 0x02,     // 2xx: period up xx per tick after the first
    EffectTonePortamento = 0x03,     // 3xx: slide towards the cell's note at xx per tick
    EffectVibrato = 0x04,            // 4xy: speed x, depth y
    EffectTonePortamentoVolumeSlide = 0x05,  // 5xy: 300 and Axy
    EffectVibratoVolumeSlide = 0x06,         // 6xy: 400 and Axy
    EffectTremolo = 0x07,            // 7xy: speed x, depth y on the volume
    EffectSetPanning = 0x08,         // 8xx: 00 left .. FF right
    EffectSampleOffset = 0x09,       // 9xx: start the sample at frame xx * 256
    EffectVolumeSlide = 0x0A,        // Axy: up x, else down y, per tick after the first
    EffectPositionJump = 0x0B,       // Bxx: continue at order xx (S3M B too)
    EffectSetVolume = 0x0C,          // Cxx: 0..64
    EffectPatternBreak = 0x0D,       // Dxy: next order at row x * 10 + y (S3M C too)
    EffectExtended = 0x0E,           // Exy: sub-command x, below
    EffectSetSpeedTempo = 0x0F,      // Fxx: below 0x20 ticks per row, else beats per minute

    // XM letter effects.
    EffectSetGlobalVolume = 0x10,      // Gxx: 0..64 (S3M V too)
    EffectGlobalVolumeSlide = 0x11,    // Hxy: up x, else down y, per tick after the first
    EffectKeyOff = 0x14,               // Kxx: key off at tick xx
    EffectSetEnvelopePosition = 0x15,  // Lxx: volume (and panning) envelope to tick xx
    EffectPanningSlide = 0x19,         // Pxy: right x, else left y, per tick after the first
    EffectMultiRetrigger = 0x1B,       // Rxy: retrigger every y ticks, volume change x (S3M Q too)
    EffectTremor = 0x1D,               // Txy: on x + 1 ticks, off y + 1 ticks (S3M I too)
    EffectExtraFinePortamento = 0x21,  // X1y: up y quarter steps once; X2y: down

    // S3M effects whose parameters no shared code reads the same way.
    EffectS3mSetSpeed = 0x30,           // Axx: ticks per row (00 ignored)
    EffectS3mVolumeSlide = 0x31,        // Dxy: x0 up, 0y down, xF fine up, Fy fine down; 00 = last
    EffectS3mPortamentoDown = 0x32,     // Exx: down xx per tick; EFx fine, EEx extra fine; 00 = last
    EffectS3mPortamentoUp = 0x33,       // Fxx: the same upwards
    EffectS3mArpeggio = 0x34,           // Jxy: as 0xy, J00 = last
    EffectS3mVibratoVolumeSlide = 0x35, // Kxy: H00 and Dxy
    EffectS3mTonePortamentoVolumeSlide = 0x36,  // Lxy: G00 and Dxy
    EffectS3mExtended = 0x37,           // Sxy: sub-command x, below
    EffectS3mSetTempo = 0x38,           // Txx: beats per minute, 0x20..0xFF; T0x / T1x slide x a tick; T00 repeats
    EffectS3mFineVibrato = 0x39,        // Uxy: vibrato with a quarter of H's depth
    EffectS3mGlobalVolumeSlide = 0x3A,  // Wxy: as Dxy on the global volume
    EffectS3mSetPanning = 0x3B,         // Xxx: 00 left .. 80 right, A4 surround
    EffectS3mPanbrello = 0x3C,          // Yxy: speed x, depth y on the panning
};

// Sub-commands of EffectExtended (the high nibble of its parameter).
enum ExtendedEffect : uint8_t {
    ExtendedFilter = 0x0,              // E0x: Amiga filter (ignored)
    ExtendedFinePortamentoUp = 0x1,    // E1x
    ExtendedFinePortamentoDown = 0x2,  // E2x
    ExtendedGlissando = 0x3,           // E3x: tone portamento in whole semitones when x = 1
    ExtendedVibratoWaveform = 0x4,     // E4x: 0 sine, 1 ramp down, 2 square, 3 random; +4 keeps phase
    ExtendedSetFinetune = 0x5,         // E5x
    ExtendedPatternLoop = 0x6,         // E60 marks the start, E6x repeats x times
    ExtendedTremoloWaveform = 0x7,     // E7x: as E4x
    ExtendedSetPanning = 0x8,          // E8x: x * 17
    ExtendedRetrigger = 0x9,           // E9x: every x ticks
    ExtendedFineVolumeUp = 0xA,        // EAx
    ExtendedFineVolumeDown = 0xB,      // EBx
    ExtendedNoteCut = 0xC,             // ECx: volume 0 at tick x
    ExtendedNoteDelay = 0xD,           // EDx: the row's note starts at tick x
    ExtendedPatternDelay = 0xE,        // EEx: repeat the row x times (no new notes)
    ExtendedInvertLoop = 0xF,          // EFx: funk repeat (ignored)
};

// Sub-commands of EffectS3mExtended (the high nibble of its parameter).
enum S3mExtendedEffect : uint8_t {
    S3mExtendedFilter = 0x0,           // S0x (ignored)
    S3mExtendedGlissando = 0x1,        // S1x
    S3mExtendedSetFinetune = 0x2,      // S2x: C4 speed from the finetune table
    S3mExtendedVibratoWaveform = 0x3,  // S3x
    S3mExtendedTremoloWaveform = 0x4,  // S4x
    S3mExtendedPanbrelloWaveform = 0x5,  // S5x
    S3mExtendedFinePatternDelay = 0x6,   // S6x: x extra ticks for this row
    S3mExtendedSetPanning = 0x8,       // S8x: x * 17
    S3mExtendedStereoControl = 0xA,    // SAx: stereo control (ignored, as the players do)
    S3mExtendedPatternLoop = 0xB,      // SB0 marks, SBx repeats x times
    S3mExtendedNoteCut = 0xC,          // SCx
    S3mExtendedNoteDelay = 0xD,        // SDx
    S3mExtendedPatternDelay = 0xE,     // SEx: repeat the row x times
    S3mExtendedFunkRepeat = 0xF,       // SFx (ignored)
};

// PatternCell::volume, the volume column, as XM stores it; an S3M volume v
// (0..64) is stored as volumeSetBase + v. The high nibble picks the command,
// the low nibble is its argument.
constexpr uint8_t volumeNone = 0x00;
constexpr uint8_t volumeSetBase = 0x10;            // 0x10..0x50: set volume 0..64
constexpr uint8_t volumeSlideDown = 0x60;          // 6x: down x per tick after the first
constexpr uint8_t volumeSlideUp = 0x70;            // 7x
constexpr uint8_t volumeFineDown = 0x80;           // 8x: down x once
constexpr uint8_t volumeFineUp = 0x90;             // 9x
constexpr uint8_t volumeVibratoSpeed = 0xA0;       // Ax
constexpr uint8_t volumeVibrato = 0xB0;            // Bx: vibrato with depth x
constexpr uint8_t volumeSetPanning = 0xC0;         // Cx: panning x * 16 (FT2: C F is 0xF0)
constexpr uint8_t volumePanningSlideLeft = 0xD0;   // Dx
constexpr uint8_t volumePanningSlideRight = 0xE0;  // Ex
constexpr uint8_t volumeTonePortamento = 0xF0;     // Fx: tone portamento at x * 16

// Envelope::flags, as XM stores them.
constexpr uint8_t envelopeOn = 1;
constexpr uint8_t envelopeSustain = 2;
constexpr uint8_t envelopeLoop = 4;

// ModuleSample::extraA and extraB by format (-1 where unset; MOD uses neither):
//   S3M: extraA = C4 speed in Hz (the rate at which note 48 plays);
//        extraB = -1 (S3M samples carry no panning).
//   XM:  extraA = relative note in semitones (-96..95, added to the cell's note);
//        extraB = default panning 0..255.

}  // namespace mod
