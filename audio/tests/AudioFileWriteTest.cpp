// Tests of AudioFile's writing side: exact header bytes, conversions, and
// read-back by our reader, Python's wave module and sox.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "AudioFile.h"
#include "MemoryStream.h"
#include "SampleFormat.h"
#include "TestSupport.h"
#include "WavBuilder.h"

namespace {

std::vector<uint8_t> bytesOf(const MemoryStream& stream) {
    return std::vector<uint8_t>(stream.data(), stream.data() + stream.length());
}

uint32_t le32At(const std::vector<uint8_t>& b, size_t at) {
    return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) | (uint32_t(b[at + 3]) << 24);
}

std::vector<int16_t> sineFrames(int32_t frames, int32_t channels) {
    std::vector<int16_t> samples(size_t(frames) * channels);
    for (int32_t i = 0; i < frames; ++i)
        for (int32_t c = 0; c < channels; ++c)
            samples[size_t(i) * channels + c] = int16_t(20000 * std::sin(0.01 * i * (c + 1)));
    return samples;
}

bool toolAvailable(const char* probe) { return std::system(probe) == 0; }

std::string runAndCapture(const std::string& command) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return out;
    char chunk[4096];
    size_t n;
    while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0)
        out.append(chunk, n);
    pclose(pipe);
    return out;
}

}  // namespace

TEST(AudioFileWrite, headerBytesAreCanonical) {
    MemoryStream empty;
    AudioFile file;
    ASSERT_TRUE(file.create(&empty, Int16, 44100, 2, 1));
    ASSERT_TRUE(file.close());
    const std::vector<uint8_t> expected = {'R', 'I', 'F', 'F', 36, 0, 0, 0, 'W', 'A', 'V', 'E', 'f', 'm', 't', ' ',
                                           16, 0, 0, 0, 1, 0, 2, 0, 0x44, 0xAC, 0, 0, 0x10, 0xB1, 2, 0, 4, 0, 16,
                                           0, 'd', 'a', 't', 'a', 0, 0, 0, 0};
    EXPECT_EQ(bytesOf(empty), expected);

    MemoryStream stereo;
    const auto samples = sineFrames(1000, 2);
    ASSERT_TRUE(file.create(&stereo, Int16, 44100, 2, 1));
    uint32_t written = 0;
    ASSERT_TRUE(file.write(samples.data(), 1000, 2, written, Int16));
    EXPECT_EQ(written, 1000u);
    ASSERT_TRUE(file.close());
    const auto bytes = bytesOf(stereo);
    ASSERT_EQ(bytes.size(), 4044u);
    EXPECT_EQ(le32At(bytes, 4), 4036u);
    EXPECT_EQ(le32At(bytes, 40), 4000u);
    EXPECT_EQ(std::memcmp(bytes.data() + 44, samples.data(), 4000), 0);
}

TEST(AudioFileWrite, formatsAndRefusals) {
    MemoryStream stream;
    AudioFile file;
    ASSERT_TRUE(file.create(&stream, Float32, 48000, 3, 1));  // the tag follows the format
    ASSERT_TRUE(file.close());
    auto bytes = bytesOf(stream);
    EXPECT_EQ(bytes[20], 3);  // tag
    EXPECT_EQ(bytes[32], 12);  // blockAlign
    EXPECT_EQ(bytes[34], 32);  // bits
    EXPECT_FALSE(file.create(&stream, Int16, 44100, 2, 2));
    EXPECT_FALSE(file.isOpen());
    EXPECT_FALSE(file.create(&stream, UInt8, 44100, 2, 1));
    EXPECT_FALSE(file.create(&stream, Int16, 44100, 0, 1));

    MemoryStream limited;
    limited.setWriteLimit(20);
    EXPECT_FALSE(file.create(&limited, Int16, 44100, 2, 1));
    EXPECT_FALSE(file.isOpen());
}

TEST(AudioFileWrite, eightBitFilesStoreUnsignedBytes) {
    MemoryStream stream;
    AudioFile file;
    ASSERT_TRUE(file.create(&stream, Int8, 8000, 1, 1));
    const int16_t samples[] = {0, 32767, -32768, 256};
    uint32_t written = 0;
    ASSERT_TRUE(file.write(samples, 4, 1, written, Int16));
    ASSERT_TRUE(file.close());
    const auto bytes = bytesOf(stream);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 44, bytes.end()), (std::vector<uint8_t>{0x80, 0xFF, 0x00, 0x81}));
}

TEST(AudioFileWrite, convertingWriteRepeatsTheFirstPieceDeliberately) {
    MemoryStream stream;
    AudioFile file;
    ASSERT_TRUE(file.create(&stream, Int16, 8000, 1, 1));
    const auto samples = sineFrames(5000, 2);  // 4096 mono frames fill one 8192-byte piece
    uint32_t written = 0;
    ASSERT_TRUE(file.write(samples.data(), 5000, 2, written, Int16));
    EXPECT_EQ(written, 5000u);
    ASSERT_TRUE(file.close());
    const auto bytes = bytesOf(stream);
    ASSERT_EQ(bytes.size(), 44u + 10000u);
    // The second piece starts again from the first frame given.
    EXPECT_EQ(std::memcmp(bytes.data() + 44, bytes.data() + 44 + 8192, 10000 - 8192), 0);
}

// Int8 is left out: an Int8 buffer matches an 8-bit file's layout and goes
// out unflipped in one write; 8-bit files are written from wider input.
TEST(AudioFileWrite, roundTripsThroughOurReaderInEveryFormat) {
    const auto samples = sineFrames(2000, 2);
    for (uint32_t format : {Int16, Int24, Float32}) {
        SCOPED_TRACE(format);
        MemoryStream stream;
        AudioFile file;
        ASSERT_TRUE(file.create(&stream, format, 22050, 2, 1));
        std::vector<uint8_t> native(2000u * 2 * bytesPerSample(format));
        convertSamples(Int16, 2, format, 2, samples.data(), native.data(), 2000);
        uint32_t written = 0;
        ASSERT_TRUE(file.write(native.data(), 2000, 2, written, format));
        ASSERT_TRUE(file.close());
        ASSERT_TRUE(stream.rewind());
        ASSERT_TRUE(file.open(&stream));
        std::vector<uint8_t> back;
        ASSERT_TRUE(readAll(file, 777, 2, format, back));
        EXPECT_EQ(back, native);
    }
}

TEST(AudioFileWrite, readBackByPythonWaveAndSox) {
    const std::string dir = temporaryDirectory();
    const std::string path = dir + "/written.wav";
    const auto samples = sineFrames(3000, 2);
    MemoryStream stream;
    AudioFile file;
    ASSERT_TRUE(file.create(&stream, Int16, 32000, 2, 1));
    uint32_t written = 0;
    ASSERT_TRUE(file.write(samples.data(), 3000, 2, written, Int16));
    ASSERT_TRUE(file.close());
    ASSERT_TRUE(writeWholeFile(path, bytesOf(stream)));
    const std::vector<uint8_t> expected(reinterpret_cast<const uint8_t*>(samples.data()),
                                        reinterpret_cast<const uint8_t*>(samples.data() + samples.size()));

    if (!toolAvailable("python3 -c 'import wave' >/dev/null 2>&1")) {
        GTEST_SKIP() << "python3 with the wave module is not installed";
    }
    const std::string python = runAndCapture(
        "python3 -c \"import wave,sys; w=wave.open('" + path +
        "'); sys.stdout.write('%d %d %d %d\\n' % (w.getnchannels(), w.getsampwidth(), w.getframerate(), "
        "w.getnframes())); sys.stdout.flush(); sys.stdout.buffer.write(w.readframes(w.getnframes()))\"");
    const size_t line = python.find('\n');
    ASSERT_NE(line, std::string::npos);
    EXPECT_EQ(python.substr(0, line), "2 2 32000 3000");
    EXPECT_EQ(std::vector<uint8_t>(python.begin() + line + 1, python.end()), expected);

    if (!toolAvailable("sox --version >/dev/null 2>&1")) {
        GTEST_SKIP() << "sox is not installed";
    }
    EXPECT_EQ(runAndCapture("sox --i -r " + path), "32000\n");
    EXPECT_EQ(runAndCapture("sox --i -c " + path), "2\n");
    EXPECT_EQ(runAndCapture("sox --i -s " + path), "3000\n");
    EXPECT_EQ(runAndCapture("sox --i -b " + path), "16\n");
    const std::string raw = runAndCapture("sox " + path + " -t s16 - 2>/dev/null");
    EXPECT_EQ(std::vector<uint8_t>(raw.begin(), raw.end()), expected);
}
