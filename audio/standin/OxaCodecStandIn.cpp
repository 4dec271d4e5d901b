// OxaCodecStandIn: a codec that refuses every stream, linked only while the
// codec library has no implementation yet. Remove once it has one.
#include "OxaCodec.h"

struct OxaCodec::State {};

OxaCodec::OxaCodec() : state(nullptr) {}
OxaCodec::~OxaCodec() = default;
bool OxaCodec::openEncoder(Stream*, uint32_t, uint32_t, int32_t, uint8_t, int32_t, float) { return false; }
bool OxaCodec::encode(const void*, int32_t, int32_t, uint32_t) { return false; }
bool OxaCodec::openDecoder(Stream*) { return false; }
bool OxaCodec::decode(void*, int32_t, int32_t, uint32_t, uint32_t& framesDelivered) {
    framesDelivered = 0;
    return false;
}
bool OxaCodec::restart() { return false; }
bool OxaCodec::close() { return true; }
uint32_t OxaCodec::sampleRate() const { return 0; }
int32_t OxaCodec::channels() const { return 0; }
uint32_t OxaCodec::blockCount() const { return 0; }
int32_t OxaCodec::windowSize() const { return 0; }
float OxaCodec::duration() const { return 0.0f; }
