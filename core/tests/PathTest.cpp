// Path helpers against the rules, quirks included.
#include <gtest/gtest.h>

#include "core/String.h"

TEST(PathTest, normalizePathCases) {
    struct Case { const char* in; const char* out; } cases[] = {
        {"a\\b\\c", "a/b/c"},
        {"a/./b/././c", "a/b/c"},
        {"./a", "a"},
        {"a//b///c", "a/b/c"},
        {"///server//share", "//server/share"},
        {"  \"a/b/\"  ", "a/b"},
        {"'\"x\"'", "x"},
        {"a/b/../c", "a/c"},
        {"../../a", "../../a"},
        {"a/b/.", "a/b"},
        {"/opt/tool/prog/..", "/opt/tool/"},
        {"a/../..", ".."},
        {"c:/x/../y", "c:/y"},
        {"/", "/"},
        {"", ""},
    };
    for (const Case& c : cases)
        EXPECT_STREQ(normalizePath(c.in).c_str(), c.out) << "input: " << c.in;
}

TEST(PathTest, joinPathCases) {
    struct Case { const char* a; const char* b; const char* out; } cases[] = {
        {"", "x//y", "x/y"},
        {"dir", "file", "dir/file"},
        {"dir/", "file", "dir/file"},
        {"dir", "/file", "dir/file"},
        {"dir", "", "dir"},
        {"/opt/tool/prog", "..", "/opt/tool/"},
    };
    for (const Case& c : cases)
        EXPECT_STREQ(joinPath(c.a, c.b).c_str(), c.out) << c.a << " + " << c.b;
}

TEST(PathTest, setExtensionCases) {
    struct Case { const char* path; const char* ext; const char* out; } cases[] = {
        {"x.wav", "oxa", "x.oxa"},
        {"x.wav", ".oxa", "x.oxa"},
        {"song", "oxa", "song/.oxa"},
        {"a.b/c", "oxa", "a.b/c/.oxa"},
        {"dir/song.mix.wav", "oxa", "dir/song.mix.oxa"},
        {"x.", "wav", "x.wav"},
        {"c:name", "oxa", "c:name/.oxa"},
    };
    for (const Case& c : cases)
        EXPECT_STREQ(setExtension(c.path, c.ext).c_str(), c.out) << c.path;
}
