#include "agent/utils/text.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

TEST(FormatText, IsCutToTheBuffer) {
    EXPECT_EQ("abc", format_text(4, "%s", "abc"));
    EXPECT_EQ("abc", format_text(4, "%s", "abcd"));
    EXPECT_EQ("a-7", format_text(10, "a%d", -7));
    EXPECT_EQ("", format_text(1, "%s", "abcd"));
    EXPECT_EQ(std::string(99, 'x'), format_text(100, "%s", std::string(10'000, 'x').c_str()));
}

TEST(FormatText, OfWhatCannotBeFormattedIsEmpty) {
    EXPECT_EQ("", format_text(10, "a%ls", L"\x20ac"));
}

TEST(CopyText, IsCutAndTerminated) {
    char out[5] = {'#', '#', '#', '#', '#'};
    copy_text(out, "abc");
    EXPECT_STREQ("abc", out);
    EXPECT_EQ('#', out[4]) << "only what is needed is written";
    copy_text(out, std::string(10'000, 'x'));
    EXPECT_STREQ("xxxx", out);
    copy_text(out, "");
    EXPECT_STREQ("", out);
}

TEST(CopyText, OfNothingIsEmpty) {
    char out[4] = "xyz";
    copy_text(out, std::string_view());
    EXPECT_STREQ("", out);
}

TEST(CutToBuffer, LeavesRoomForTheTerminator) {
    EXPECT_EQ("abc", cut_to_buffer("abc", 4));
    EXPECT_EQ("abc", cut_to_buffer("abcd", 4));
    EXPECT_EQ("", cut_to_buffer("abcd", 1));
}

TEST(ToInt, ReadsTheLeadingDecimalNumber) {
    EXPECT_EQ(0, to_int(""));
    EXPECT_EQ(0, to_int("x1"));
    EXPECT_EQ(12, to_int(" 12x"));
    EXPECT_EQ(-3, to_int("-3"));
    EXPECT_EQ(8, to_int("08")) << "decimal, whatever it begins with";
    EXPECT_EQ(0, to_int("0x10"));
}

TEST(ToInt, IsHeldToTheRangeOfInt) {
    EXPECT_EQ(INT_MAX, to_int("2147483647"));
    EXPECT_EQ(INT_MAX, to_int("2147483648"));
    EXPECT_EQ(INT_MIN, to_int("-2147483649"));
    EXPECT_EQ(INT_MAX, to_int("99999999999999999999999"));
}

TEST(NextLine, TakesLineByLineWithItsEnd) {
    std::string_view text = "one\n\nlast";
    EXPECT_EQ("one\n", next_line(text));
    EXPECT_EQ("\n", next_line(text));
    EXPECT_EQ("last", next_line(text));
    EXPECT_EQ("", next_line(text));
}

TEST(NextLine, CutsALongOneIntoPieces) {
    std::string_view text = "12345\n6";
    EXPECT_EQ("123", next_line(text, 3));
    EXPECT_EQ("45\n", next_line(text, 3));
    EXPECT_EQ("6", next_line(text, 3));
}

TEST(TextOrEmpty, ReadsNullAsEmpty) {
    EXPECT_STREQ("", text_or_empty(nullptr));
    EXPECT_STREQ("a", text_or_empty("a"));
}

}  // namespace
