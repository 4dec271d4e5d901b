// OxaFormat: header record, quantisation law and window of the Oxa stream.
#include "codec/OxaFormat.h"

#include <cmath>
#include <cstring>

#include "core/Stream.h"

namespace {

constexpr uint8_t Magic[4] = {'o', 'x', 'a', 0x1A};

}  // namespace

OxaHeader makeOxaHeader(uint32_t sampleRate, int32_t channels, uint8_t qbits, int32_t windowSize) {
    OxaHeader header;
    std::memset(&header, 0, sizeof header);
    std::memcpy(header.magic, Magic, sizeof Magic);
    header.version = OxaVersion;
    header.flags = OxaScaledFlag;
    header.sampleRate = sampleRate;
    header.channels = uint8_t(channels);  // 256 wraps to 0: such a stream is refused by readers
    header.qbits = qbits;
    header.windowSize = uint16_t(windowSize);
    header.windowSize2 = uint16_t(windowSize);
    return header;
}

bool oxaHeaderIsValid(const OxaHeader& header) {
    return std::memcmp(header.magic, Magic, sizeof Magic) == 0 && header.version == OxaVersion &&
           header.sampleRate != 0 && header.channels != 0 && isPowerOfTwo(header.windowSize);
}

bool readOxaHeader(Stream& stream, OxaHeader& header) {
    uint8_t bytes[OxaHeaderSize];
    if (!stream.readExactly(bytes, OxaHeaderSize))
        return false;
    std::memcpy(&header, bytes, OxaHeaderSize);
    return oxaHeaderIsValid(header);
}

bool writeOxaHeader(Stream& stream, const OxaHeader& header) {
    uint8_t bytes[OxaHeaderSize];
    std::memcpy(bytes, &header, OxaHeaderSize);
    return stream.writeAll(bytes, OxaHeaderSize);
}

uint32_t oxaCodeMask(uint8_t qbits) { return qbits >= 8 ? 0xFFu : (1u << qbits) - 1u; }

void buildDequantTable(float* table, uint8_t qbits) {
    // H is taken in double so that any qbits a header may claim stays defined.
    const double half = std::ldexp(1.0, qbits) / 2.0;
    const double step = (std::floor(half) - 1.0) + 0.5;
    const uint32_t codes = oxaCodeMask(qbits) + 1;
    for (uint32_t k = 0; k < codes; ++k) {
        double t = (double(k) - std::floor(half)) / step;
        double magnitude = std::pow(std::fabs(t), 5.0);
        table[k] = float(t < 0 ? -magnitude : t > 0 ? magnitude : 0.0);
    }
}

void buildOxaWindow(float* window, int32_t length) {
    // The window is symmetric, and the second half taken from the formula
    // rounds to the same floats as the mirrored first half at every length
    // a stream can have (the transform's tests compare each entry).
    for (int32_t k = 0; k < (length + 1) / 2; ++k) {
        double s = std::sin(M_PI * (k + 0.5) / length);
        window[k] = float(std::sin(M_PI / 2 * s * s));
        window[length - 1 - k] = window[k];
    }
}
