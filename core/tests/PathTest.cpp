// Path helpers against the rules, quirks included.
#include <gtest/gtest.h>

#include "core/String.h"

TEST(PathTest, normalizeJoinAndSetExtension) {
    enum Operation { Normalize, Join, SetExtension };
    struct Case { Operation operation; const char* a; const char* b; const char* out; } cases[] = {
        {Normalize, "a\\b\\c", "", "a/b/c"},
        {Normalize, "a/./b/././c", "", "a/b/c"},
        {Normalize, "./a", "", "a"},
        {Normalize, "a//b///c", "", "a/b/c"},
        {Normalize, "///server//share", "", "//server/share"},
        {Normalize, "  \"a/b/\"  ", "", "a/b"},
        {Normalize, "'\"x\"'", "", "x"},
        {Normalize, "a/b/../c", "", "a/c"},
        {Normalize, "../../a", "", "../../a"},
        {Normalize, "a/b/.", "", "a/b"},
        {Normalize, "/opt/tool/prog/..", "", "/opt/tool/"},
        {Normalize, "a/../..", "", ".."},
        {Normalize, "c:/x/../y", "", "c:/y"},
        {Normalize, "/", "", "/"},
        {Normalize, "", "", ""},
        {Join, "", "x//y", "x/y"},
        {Join, "dir", "file", "dir/file"},
        {Join, "dir/", "file", "dir/file"},
        {Join, "dir", "/file", "dir/file"},
        {Join, "dir", "", "dir"},
        {Join, "/opt/tool/prog", "..", "/opt/tool/"},
        {SetExtension, "x.wav", "oxa", "x.oxa"},
        {SetExtension, "x.wav", ".oxa", "x.oxa"},
        {SetExtension, "song", "oxa", "song/.oxa"},
        {SetExtension, "a.b/c", "oxa", "a.b/c/.oxa"},
        {SetExtension, "dir/song.mix.wav", "oxa", "dir/song.mix.oxa"},
        {SetExtension, "x.", "wav", "x.wav"},
        {SetExtension, "c:name", "oxa", "c:name/.oxa"},
    };
    for (const Case& c : cases) {
        const String out = c.operation == Normalize ? normalizePath(c.a)
                           : c.operation == Join    ? joinPath(c.a, c.b)
                                                    : setExtension(c.a, c.b);
        EXPECT_STREQ(out.c_str(), c.out) << "operation " << c.operation << " on \"" << c.a << "\", \"" << c.b << "\"";
    }
}
