// NullDevice: the silent stand-in device.
#include "audio/NullDevice.h"

bool NullDevice::start(uint32_t, uint32_t, float) { return false; }

bool NullDevice::stop() { return true; }
