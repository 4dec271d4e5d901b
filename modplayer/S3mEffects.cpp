// Sequencer effects of S3M only: the codes 0x30..0x3C of EffectCodes.h,
// whose parameters no shared code reads the same way. Effects.cpp sends
// them here; S3M's shared codes (B, C, G, H, I, O, Q, R, V) play through
// Effects.cpp and XmEffects.cpp and still need ST3's memory rules there.
//
// To do, by entry point:
//   startS3mFlowEffect: A (speed), T (tempo), SBx (pattern loop), SEx
//     (pattern delay; ST3 takes the first channel's), S6x (extraTicks);
//     return true for these so duration scans see them, and act only while
//     rowRepeat is 0;
//   startS3mEffect / tickS3mEffect: D, E, F (with fine and extra-fine
//     forms and ST3's shared memory), J, K, L, the other S commands, U, W,
//     X, Y (the channel's panbrello oscillator).
#include "modplayer/Sequencer.h"

namespace mod {

bool Sequencer::startS3mFlowEffect(Channel& channel, uint8_t effect, uint8_t parameter) {
    (void)channel;
    (void)effect;
    (void)parameter;
    return false;
}

void Sequencer::startS3mEffect(Channel& channel) { (void)channel; }

void Sequencer::tickS3mEffect(Channel& channel) { (void)channel; }

}  // namespace mod
