// String: UTF-8 in and out, sharing, and the operations the tool relies on.
#include <gtest/gtest.h>

#include "core/String.h"

// Code points are counted; bytes that are not UTF-8 (Latin-1, a cut
// sequence, a surrogate, an overlong form) come back unchanged.
TEST(StringTest, textSurvivesTheRoundTripAndCodePointsAreCounted) {
    struct Case { const char* text; int32_t length; } cases[] = {
        {"", 0},
        {"a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8E\xB5z", 5},  // a é € 🎵 z
        {"caf\xE9 \xFF\xC3(\xED\xA0\x80\xC0\xAF", 13},
    };
    for (const Case& c : cases) {
        String s(c.text);
        EXPECT_EQ(s.length(), c.length) << c.text;
        EXPECT_STREQ(s.c_str(), c.text);
    }
    EXPECT_STREQ(String().c_str(), "");
    EXPECT_EQ(String(cases[1].text)[1], 0xE9u);
    EXPECT_EQ(String(cases[1].text)[3], 0x1F3B5u);
}

TEST(StringTest, copiesShareUntilModified) {
    String a("song");
    String b = a;
    b += ".wav";
    EXPECT_STREQ(a.c_str(), "song");
    EXPECT_STREQ(b.c_str(), "song.wav");
    a.append('s');
    EXPECT_STREQ(a.c_str(), "songs");
    a += a;
    EXPECT_STREQ(a.c_str(), "songssongs");
}

TEST(StringTest, operations) {
    EXPECT_STREQ(String("  \t name \n").trimmed().c_str(), "name");
    EXPECT_TRUE(String("   ").trimmed().isEmpty());
    EXPECT_TRUE(String("mywav").endsWith("wav"));
    EXPECT_FALSE(String("x.WAV").endsWith("wav"));
    EXPECT_FALSE(String("av").endsWith("wav"));
    EXPECT_STREQ(String("AbC\xC3\x89").toLower().c_str(), "abc\xC3\x89");
    String cut("abcdef");
    cut.removeFrom(2);
    EXPECT_STREQ(cut.c_str(), "ab");
    EXPECT_LT(String("abc").compare("abd"), 0);
    EXPECT_EQ(String("abc"), String("abc"));
    EXPECT_STREQ(String::format("%d-%s", 7, "x").c_str(), "7-x");
}
