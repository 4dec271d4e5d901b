// Sequencer effects of XM only: the letter codes 0x10..0x23 of
// EffectCodes.h (G = 0x10 ... Z = 0x23). Effects.cpp sends them here. The
// volume column's commands other than set-volume belong in
// Sequencer::startVolumeColumn / tickVolumeColumn (Effects.cpp).
//
// To do, by entry point:
//   startXmFlowEffect: none of the letters moves the song, so it stays false
//     unless one turns out to;
//   startXmEffect / tickXmEffect: G and H (globalLevel, 0..64), K (keyOff at
//     a tick), L (envelope position), P, R, T (volumeOffset), X1/X2.
// Instrument envelopes, fadeout and auto-vibrato advance once per tick and
// feed Channel's envelopeVolume, envelopePanning, fadeoutVolume and
// autoVibratoOffset, which Sequencer::computeOutput already combines.
#include "modplayer/Sequencer.h"

namespace mod {

bool Sequencer::startXmFlowEffect(Channel& channel, uint8_t effect, uint8_t parameter) {
    (void)channel;
    (void)effect;
    (void)parameter;
    return false;
}

void Sequencer::startXmEffect(Channel& channel) { (void)channel; }

void Sequencer::tickXmEffect(Channel& channel) { (void)channel; }

}  // namespace mod
