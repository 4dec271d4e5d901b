// FileStream against real files: modes, positions, clone, end of file.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <string>

#include "core/FileStream.h"
#include "core/tests/support/TestSupport.h"

namespace {

std::string makeFile(const std::string& dir, const char* name, const std::string& content) {
    std::string path = dir + "/" + name;
    writeWholeFile(path, std::vector<uint8_t>(content.begin(), content.end()));
    return path;
}

std::string contentOf(const std::string& path) {
    std::vector<uint8_t> bytes = readWholeFile(path);
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace

TEST(FileStreamTest, modeStringsMapToModeBits) {
    struct Case { const char* mode; uint32_t bits; } cases[] = {
        {"r", 1}, {"rb", 1}, {"w", 14}, {"wx", 6}, {"a", 23}, {"a+", 23}, {"r+", 3}, {"w+", 15}, {"", 0},
    };
    for (const Case& c : cases)
        EXPECT_EQ(FileStream::parseModeString(c.mode), c.bits) << c.mode;
}

TEST(FileStreamTest, openModesOnExistingAndMissingFiles) {
    std::string dir = temporaryDirectory();
    std::string existing = makeFile(dir, "existing", "hello");
    std::string missing = dir + "/missing";

    EXPECT_EQ(FileStream(missing.c_str(), 1, 7).flags(), 0u);
    EXPECT_EQ(FileStream(existing.c_str(), 1, 7).flags(), uint32_t(StreamOpen | StreamReadable | StreamSeekable));
    EXPECT_EQ(FileStream(existing.c_str(), 0, 7).flags(), 0u);  // no access bits opens nothing
    EXPECT_EQ(FileStream(existing.c_str(), "wx").flags(), 0u);  // exclusive create on an existing file
    EXPECT_EQ(FileStream(existing.c_str(), 2, 7).flags() & StreamWritable, uint32_t(StreamWritable));
    EXPECT_EQ(contentOf(existing), "hello");  // no create, no truncate: untouched

    { FileStream emptied(existing.c_str(), 14, 7); EXPECT_TRUE(emptied.flags() & StreamOpen); }
    EXPECT_EQ(contentOf(existing), "");

    { FileStream created(missing.c_str(), "wx"); EXPECT_TRUE(created.flags() & StreamOpen); }
    struct stat info;
    ASSERT_EQ(stat(missing.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST(FileStreamTest, appendWritesAtTheEndAndKeepsThePosition) {
    std::string dir = temporaryDirectory();
    std::string path = makeFile(dir, "log", "abc");
    // "a" creates exclusively like every create without truncate: it opens a new file.
    EXPECT_EQ(FileStream(path.c_str(), "a").flags(), 0u);
    FileStream stream(path.c_str(), 3 | FileAppend, 7);
    ASSERT_EQ(stream.flags(), uint32_t(StreamOpen | StreamReadable | StreamWritable | StreamSeekable | StreamAppend));
    std::string fresh = dir + "/fresh";
    EXPECT_EQ(FileStream(fresh.c_str(), "a").flags(), stream.flags());
    EXPECT_EQ(stream.tell(), 0);
    EXPECT_TRUE(stream.writeAll("de", 2));
    EXPECT_EQ(stream.tell(), 0);
    char first[3] = {};
    EXPECT_TRUE(stream.readExactly(first, 3));
    EXPECT_EQ(std::string(first, 3), "abc");
    stream.close();
    EXPECT_EQ(contentOf(path), "abcde");
}

TEST(FileStreamTest, sizeKeepsPositionEndOfFileReadsZeroAndTruncateCutsAtThePosition) {
    std::string dir = temporaryDirectory();
    std::string path = makeFile(dir, "data", "0123456789");
    FileStream stream(path.c_str(), 3, 7);
    ASSERT_TRUE(stream.seek(4, SeekStart));
    EXPECT_EQ(stream.size(), 10);
    EXPECT_EQ(stream.tell(), 4);
    EXPECT_FALSE(stream.atEnd());
    char rest[16];
    uint32_t count = 0;
    EXPECT_TRUE(stream.read(rest, 16, count));
    EXPECT_EQ(count, 6u);
    EXPECT_TRUE(stream.read(rest, 16, count));
    EXPECT_EQ(count, 0u);
    EXPECT_TRUE(stream.atEnd());
    EXPECT_TRUE(stream.seek(-3, SeekEnd));
    EXPECT_EQ(stream.tell(), 7);
    EXPECT_FALSE(stream.seek(-20, SeekCurrent));
    EXPECT_TRUE(stream.seek(4, SeekStart) && stream.truncate() && stream.flush());
    stream.close();
    EXPECT_EQ(contentOf(path), "0123");
}

TEST(FileStreamTest, cloneOpensTheSamePathAtTheSamePosition) {
    std::string dir = temporaryDirectory();
    std::string path = makeFile(dir, "data", "0123456789");
    FileStream stream(path.c_str(), 1, 7);
    stream.seek(6, SeekStart);
    Stream* copy = stream.clone();
    ASSERT_NE(copy, nullptr);
    char c = 0;
    EXPECT_TRUE(copy->readExactly(&c, 1));
    EXPECT_EQ(c, '6');
    EXPECT_EQ(stream.tell(), 6);
    delete copy;

    // A clone reuses the mode whole: truncation empties the file again.
    FileStream writer(path.c_str(), 14, 7);
    writer.writeAll("xyz", 3);
    delete writer.clone();
    EXPECT_EQ(contentOf(path), "");
}

TEST(FileStreamTest, closedStreamFailsQuietly) {
    FileStream stream;
    char byte;
    uint32_t count = 7;
    EXPECT_FALSE(stream.read(&byte, 1, count));
    EXPECT_EQ(count, 0u);
    EXPECT_FALSE(stream.write(&byte, 1, count));
    EXPECT_EQ(stream.tell(), -1);
    EXPECT_EQ(stream.size(), -1);
    EXPECT_TRUE(stream.close());
    EXPECT_EQ(stream.clone(), nullptr);
}
