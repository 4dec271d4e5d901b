// BufferedStream and TapStream over in-memory and real streams.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "core/BufferedStream.h"
#include "core/FileStream.h"
#include "core/MemoryStream.h"
#include "core/TapStream.h"
#include "core/tests/support/TestSupport.h"

namespace {

// Records the size of every write and read that reaches it.
class CountingStream final : public Stream {
public:
    bool read(void* buffer, int32_t length, uint32_t& count) override {
        reads.push_back(length);
        return memory.read(buffer, length, count);
    }
    bool write(const void* buffer, int32_t length, uint32_t& count) override {
        writes.push_back(length);
        return memory.write(buffer, length, count);
    }
    uint32_t flags() override { return memory.flags(); }
    bool seek(int64_t offset, int32_t origin) override { return memory.seek(offset, origin); }
    int64_t tell() override { return memory.tell(); }

    MemoryStream memory;
    std::vector<int32_t> reads, writes;
};

}  // namespace

TEST(BufferedStreamTest, smallWritesReachTheInnerStreamInWholeBuffers) {
    CountingStream inner;
    {
        BufferedStream buffered(&inner, 16);
        for (int i = 0; i < 40; ++i) {
            uint8_t byte = uint8_t(i);
            EXPECT_TRUE(buffered.writeAll(&byte, 1));
        }
        EXPECT_EQ(buffered.tell(), 40);
        EXPECT_EQ(inner.writes, (std::vector<int32_t>{16, 16}));
        EXPECT_TRUE(buffered.flush());
        EXPECT_EQ(inner.writes.back(), 8);
    }
    ASSERT_EQ(inner.memory.length(), 40);
    for (int i = 0; i < 40; ++i)
        EXPECT_EQ(inner.memory.data()[i], i);
}

TEST(BufferedStreamTest, readsOfAnySizeDeliverTheSameBytes) {
    std::vector<uint8_t> original(5000);
    std::mt19937 random(7);
    for (uint8_t& b : original)
        b = uint8_t(random());
    for (int32_t bufferSize : {1, 3, 64, 4096, 8192}) {
        MemoryStream inner(original.data(), int32_t(original.size()));
        BufferedStream buffered(&inner, bufferSize);
        std::vector<uint8_t> read;
        uint8_t chunk[300];
        for (uint32_t count = 1; count > 0;) {
            int32_t want = int32_t(random() % sizeof chunk) + 1;
            ASSERT_TRUE(buffered.read(chunk, want, count));
            read.insert(read.end(), chunk, chunk + count);
        }
        EXPECT_EQ(read, original) << "buffer size " << bufferSize;
        EXPECT_EQ(buffered.tell(), 5000);
    }
}

TEST(BufferedStreamTest, interleavedReadAndWriteOnARealFile) {
    std::string path = temporaryDirectory() + "/mixed";
    writeWholeFile(path, std::vector<uint8_t>(100, 'a'));
    FileStream file(path.c_str(), 3, 7);
    BufferedStream buffered(&file, 32);
    char head[10];
    ASSERT_TRUE(buffered.readExactly(head, 10));
    // The read-ahead is dropped, not undone: the write lands where the inner stream stands.
    ASSERT_TRUE(buffered.writeAll("BBBB", 4));
    ASSERT_TRUE(buffered.flush());
    EXPECT_EQ(file.tell(), 36);
    ASSERT_TRUE(buffered.seek(0, SeekStart));
    char all[100];
    ASSERT_TRUE(buffered.readExactly(all, 100));
    EXPECT_EQ(std::string(all + 32, 4), "BBBB");
    EXPECT_EQ(std::string(all + 10, 4), "aaaa");
    EXPECT_EQ(buffered.size(), 100);
    EXPECT_EQ(buffered.tell(), 100);
}

TEST(BufferedStreamTest, failingInnerWriteIsReported) {
    MemoryStream inner;
    inner.setWriteLimit(20);
    BufferedStream buffered(&inner, 16);
    std::vector<uint8_t> data(40, 1);
    uint32_t count = 0;
    EXPECT_TRUE(buffered.write(data.data(), 10, count));
    EXPECT_TRUE(buffered.write(data.data(), 10, count));  // first 16 go out
    EXPECT_FALSE(buffered.write(data.data(), 20, count));
    EXPECT_FALSE(buffered.flush() && buffered.flush() && inner.length() > 20);
}

TEST(BufferedStreamTest, closeFlushesAndForgetsTheInnerStream) {
    MemoryStream inner;
    BufferedStream buffered(&inner, 64);
    buffered.writeAll("abc", 3);
    EXPECT_TRUE(buffered.close());
    EXPECT_EQ(inner.length(), 3);
    EXPECT_FALSE(buffered.writeAll("d", 1));
    EXPECT_EQ(buffered.clone(), nullptr);
}

TEST(TapStreamTest, writesGoOutInPiecesOfEightAndReadsAreReported) {
    CountingStream inner;
    TapStream tap;
    tap.setInner(&inner);
    uint8_t data[20];
    for (int i = 0; i < 20; ++i)
        data[i] = uint8_t(i);
    uint32_t count = 0;
    EXPECT_TRUE(tap.write(data, 20, count));
    EXPECT_EQ(count, 20u);
    EXPECT_EQ(inner.writes, (std::vector<int32_t>{8, 8, 4}));
    EXPECT_TRUE(tap.write(data, 0, count));
    EXPECT_FALSE(tap.write(data, -1, count));

    struct Inverter {
        uint32_t seen = 0;
        void onRead(void* buffer, uint32_t n) {
            seen += n;
            for (uint32_t i = 0; i < n; ++i)
                static_cast<uint8_t*>(buffer)[i] ^= 0xFF;
        }
    } inverter;
    tap.setCallback(TapStream::Callback::fromMethod<&Inverter::onRead>(&inverter));
    ASSERT_TRUE(tap.rewind());
    uint8_t back[20];
    ASSERT_TRUE(tap.readExactly(back, 20));
    EXPECT_EQ(inverter.seen, 20u);
    EXPECT_EQ(back[5], uint8_t(5 ^ 0xFF));
    EXPECT_EQ(tap.tell(), 20);
    EXPECT_TRUE(tap.atEnd());
}

TEST(StreamTest, sizeOfANonSeekableStreamIsUnknown) {
    MemoryStream stream("abcdef", 6);
    char c;
    stream.readExactly(&c, 1);
    stream.setSeekable(false);
    EXPECT_EQ(stream.tell(), -1);
    EXPECT_EQ(stream.Stream::size(), -1);
    stream.setSeekable(true);
    EXPECT_EQ(stream.tell(), 1);
    EXPECT_EQ(stream.Stream::size(), 6);
    EXPECT_EQ(stream.tell(), 1);
    EXPECT_TRUE(stream.skip(3));
    EXPECT_EQ(stream.tell(), 4);
    EXPECT_FALSE(stream.skip(5));
}
