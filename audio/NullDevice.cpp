// NullDevice: the silent stand-in device.
#include "NullDevice.h"

bool NullDevice::start(uint32_t, uint32_t, float) { return false; }

bool NullDevice::stop() { return true; }
