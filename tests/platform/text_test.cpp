#include "platform/text.h"

#include <gtest/gtest.h>

TEST(text, well_formed_utf8_is_told_from_the_rest)
{
    for (const char *good : {"", "plain", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                             "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xA9z"})
        EXPECT_TRUE(text_is_utf8(good)) << good;
    for (const char *bad : {"\x80", "\xC0\xAF", "\xC1\xBF", "\xC3", "\xC3z", "\xE0\x9F\xBF",
                            "\xE2\x82", "\xED\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
                            "\xF5\x80\x80\x80", "\xFF", "ok\xE9"})
        EXPECT_FALSE(text_is_utf8(bad)) << bad;
}

TEST(text, bytes_without_an_encoding_are_utf8_or_latin1_as_a_whole)
{
    EXPECT_EQ(text_from_bytes("Caf\xC3\xA9"), "Caf\xC3\xA9");
    EXPECT_EQ(text_from_bytes("Caf\xE9"), "Caf\xC3\xA9");
    EXPECT_EQ(text_from_bytes("\xC3\xA9 \xE9"), "\xC3\x83\xC2\xA9 \xC3\xA9");
    EXPECT_EQ(text_from_latin1("\xC3\xA9"), "\xC3\x83\xC2\xA9");
}

TEST(text, a_cut_divides_no_character)
{
    const std::string_view text = "a\xC3\xA9\xE2\x82\xAC";
    EXPECT_EQ(text_cut(text, 99), text);
    EXPECT_EQ(text_cut(text, 6), text);
    EXPECT_EQ(text_cut(text, 5), "a\xC3\xA9");
    EXPECT_EQ(text_cut(text, 3), "a\xC3\xA9");
    EXPECT_EQ(text_cut(text, 2), "a");
    EXPECT_EQ(text_cut(text, 0), "");
}
