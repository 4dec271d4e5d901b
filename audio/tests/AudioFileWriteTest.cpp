// Tests of AudioFile's writing side: exact header bytes, conversions, and
// read-back by our reader and by sox.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "audio/AudioFile.h"
#include "audio/pcm/SampleFormat.h"
#include "audio/tests/WavBuilder.h"
#include "core/tests/support/TestSupport.h"

namespace {

// A whole file written with one write call of `frames` frames from `samples`.
Bytes written(uint32_t fileFormat, uint32_t rate, int32_t fileChannels, const void* samples, int32_t frames,
              int32_t channels, uint32_t format) {
    MemoryStream stream;
    AudioFile file;
    uint32_t count = 0;
    EXPECT_TRUE(file.create(&stream, fileFormat, rate, fileChannels, 1));
    EXPECT_TRUE(frames == 0 || file.write(samples, frames, channels, count, format));
    EXPECT_EQ(count, uint32_t(frames));
    EXPECT_TRUE(file.close());
    return Bytes(stream.data(), stream.data() + stream.length());
}

std::string outputOf(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    char chunk[4096];
    for (size_t n; pipe && (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        out.append(chunk, n);
    if (pipe)
        pclose(pipe);
    return out;
}

}  // namespace

TEST(AudioFileWrite, headerBytesAreCanonical) {
    const Bytes header = {'R', 'I', 'F', 'F', 36, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 16, 0, 0, 0, 1, 0,
                          2, 0, 0x44, 0xAC, 0, 0, 0x10, 0xB1, 2, 0, 4, 0, 16, 0, 'd', 'a', 't', 'a', 0, 0, 0, 0};
    EXPECT_EQ(written(Int16, 44100, 2, nullptr, 0, 2, Int16), header);
    const auto floats = written(Float32, 48000, 3, nullptr, 0, 3, Float32);  // the tag follows the format
    EXPECT_EQ(floats[20], 3);   // tag
    EXPECT_EQ(floats[32], 12);  // blockAlign
    EXPECT_EQ(floats[34], 32);  // bits
    const int16_t extremes[] = {0, 32767, -32768, 256};  // 8-bit files store unsigned bytes
    const auto eightBit = written(Int8, 8000, 1, extremes, 4, 1, Int16);
    EXPECT_EQ(Bytes(eightBit.begin() + 44, eightBit.end()), (Bytes{0x80, 0xFF, 0x00, 0x81}));

    MemoryStream full;  // a header that cannot be written leaves the file closed
    full.setWriteLimit(20);
    AudioFile file;
    EXPECT_FALSE(file.create(&full, Int16, 44100, 2, 1));
    EXPECT_FALSE(file.isOpen());
}

TEST(AudioFileWrite, convertingWriteRepeatsTheFirstPieceDeliberately) {
    const auto samples = randomBytes(5000 * 4, 61);  // 4096 mono frames fill one 8192-byte piece
    const auto bytes = written(Int16, 8000, 1, samples.data(), 5000, 2, Int16);
    ASSERT_EQ(bytes.size(), 44u + 10000u);
    // The second piece starts again from the first frame given.
    EXPECT_EQ(std::memcmp(bytes.data() + 44, bytes.data() + 44 + 8192, 10000 - 8192), 0);
}

// What is written in each format reads back unchanged through our reader and
// sox. Int8 is left out: an Int8 buffer matches an 8-bit file's layout and
// goes out unflipped in one write; 8-bit files are written from wider input.
TEST(AudioFileWrite, roundTripsThroughOurReaderAndSoxInEveryFormat) {
    const bool haveSox = std::system("sox --version >/dev/null 2>&1") == 0;
    const auto samples = randomBytes(3000 * 4, 62);
    for (uint32_t format : {Int16, Int24, Float32}) {
        SCOPED_TRACE(testing::Message() << "format " << format);
        Bytes native(3000u * 2 * bytesPerSample(format));
        convertSamples(Int16, 2, format, 2, samples.data(), native.data(), 3000);
        const auto wav = written(format, 32000, 2, native.data(), 3000, 2, format);
        EXPECT_EQ(readAllOf(wav, 777, 2, format), native);
        if (!haveSox)
            continue;
        const std::string path = temporaryDirectory() + "/written.wav";
        ASSERT_TRUE(writeWholeFile(path, wav));
        EXPECT_EQ(outputOf("for o in r c s b e; do sox --i -$o " + path + " 2>/dev/null; done"),
                  "32000\n2\n3000\n" + std::to_string(8 * bytesPerSample(format)) +
                      (format == Float32 ? "\nFloating Point PCM\n" : "\nSigned Integer PCM\n"));
        EXPECT_EQ(outputOf("sox " + path + " -t raw - 2>/dev/null"), std::string(native.begin(), native.end()));
    }
    if (!haveSox)
        GTEST_SKIP() << "sox is not installed: written files checked by our reader only";
}
