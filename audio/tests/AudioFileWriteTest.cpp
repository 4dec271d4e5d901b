// Tests of AudioFile's writing side: exact header bytes, conversions, and
// read-back by our reader, Python's wave module and sox.
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

std::string runAndCapture(const std::string& command) {
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
}

TEST(AudioFileWrite, aFailedHeaderWriteLeavesTheFileClosed) {
    MemoryStream limited;
    AudioFile file;
    limited.setWriteLimit(20);
    EXPECT_FALSE(file.create(&limited, Int16, 44100, 2, 1));
    EXPECT_FALSE(file.isOpen());
}

TEST(AudioFileWrite, convertingWriteRepeatsTheFirstPieceDeliberately) {
    const auto samples = randomBytes(5000 * 4, 61);  // 4096 mono frames fill one 8192-byte piece
    const auto bytes = written(Int16, 8000, 1, samples.data(), 5000, 2, Int16);
    ASSERT_EQ(bytes.size(), 44u + 10000u);
    // The second piece starts again from the first frame given.
    EXPECT_EQ(std::memcmp(bytes.data() + 44, bytes.data() + 44 + 8192, 10000 - 8192), 0);
}

// Int8 is left out: an Int8 buffer matches an 8-bit file's layout and goes
// out unflipped in one write; 8-bit files are written from wider input.
TEST(AudioFileWrite, roundTripsThroughOurReaderInEveryFormat) {
    const auto samples = randomBytes(2000 * 4, 62);
    for (uint32_t format : {Int16, Int24, Float32}) {
        Bytes native(2000u * 2 * bytesPerSample(format));
        convertSamples(Int16, 2, format, 2, samples.data(), native.data(), 2000);
        EXPECT_EQ(readAllOf(written(format, 22050, 2, native.data(), 2000, 2, format), 777, 2, format), native)
            << format;
    }
}

TEST(AudioFileWrite, readBackByPythonWaveAndSox) {
    const std::string path = temporaryDirectory() + "/written.wav";
    const auto samples = randomBytes(3000 * 4, 63);
    ASSERT_TRUE(writeWholeFile(path, written(Int16, 32000, 2, samples.data(), 3000, 2, Int16)));
    const std::string expected(samples.begin(), samples.end());

    if (std::system("python3 -c 'import wave' >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "python3 with the wave module is not installed";
    const std::string python = runAndCapture(
        "python3 -c \"import wave,sys; w=wave.open('" + path +
        "'); sys.stdout.write('%d %d %d %d\\n' % (w.getnchannels(), w.getsampwidth(), w.getframerate(), "
        "w.getnframes())); sys.stdout.flush(); sys.stdout.buffer.write(w.readframes(w.getnframes()))\"");
    EXPECT_EQ(python, "2 2 32000 3000\n" + expected);

    if (std::system("sox --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "sox is not installed";
    EXPECT_EQ(runAndCapture("for o in r c s b; do sox --i -$o " + path + "; done"), "32000\n2\n3000\n16\n");
    EXPECT_EQ(runAndCapture("sox " + path + " -t s16 - 2>/dev/null"), expected);
}
