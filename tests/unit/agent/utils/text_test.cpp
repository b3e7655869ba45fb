#include "agent/utils/text.h"

#include <gtest/gtest.h>

#include <climits>

namespace {

TEST(FormatText, IsCutToTheBuffer) {
    EXPECT_EQ(format_text(4, "%s", "abc"), "abc");
    EXPECT_EQ(format_text(4, "%s", "abcd"), "abc");
    EXPECT_EQ(format_text(10, "a%d", -7), "a-7");
    EXPECT_EQ(format_text(1, "%s", "abcd"), "");
    EXPECT_EQ(format_text(100, "%s", std::string(10'000, 'x').c_str()), std::string(99, 'x'));
}

TEST(FormatText, OfWhatCannotBeFormattedIsEmpty) {
    EXPECT_EQ(format_text(10, "a%ls", L"\x20ac"), "");
}

TEST(CopyText, IsCutAndTerminated) {
    char out[5] = {'#', '#', '#', '#', '#'};
    copy_text(out, "abc");
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(out[4], '#') << "only what is needed is written";
    copy_text(out, std::string(10'000, 'x'));
    EXPECT_STREQ(out, "xxxx");
    copy_text(out, "");
    EXPECT_STREQ(out, "");
}

TEST(CopyText, OfNothingIsEmpty) {
    char out[4] = "xyz";
    copy_text(out, std::string_view());
    EXPECT_STREQ(out, "");
}

TEST(CutToBuffer, LeavesRoomForTheTerminator) {
    EXPECT_EQ(cut_to_buffer("abc", 4), "abc");
    EXPECT_EQ(cut_to_buffer("abcd", 4), "abc");
    EXPECT_EQ(cut_to_buffer("abcd", 1), "");
}

TEST(ToInt, ReadsTheLeadingDecimalNumber) {
    EXPECT_EQ(to_int(""), 0);
    EXPECT_EQ(to_int("x1"), 0);
    EXPECT_EQ(to_int(" 12x"), 12);
    EXPECT_EQ(to_int("-3"), -3);
    EXPECT_EQ(to_int("08"), 8) << "decimal, whatever it begins with";
    EXPECT_EQ(to_int("0x10"), 0);
}

TEST(ToInt, IsHeldToTheRangeOfInt) {
    EXPECT_EQ(to_int("2147483647"), INT_MAX);
    EXPECT_EQ(to_int("2147483648"), INT_MAX);
    EXPECT_EQ(to_int("-2147483649"), INT_MIN);
    EXPECT_EQ(to_int("99999999999999999999999"), INT_MAX);
}

TEST(NextLine, TakesLineByLineWithItsEnd) {
    std::string_view text = "one\n\nlast";
    EXPECT_EQ(next_line(text), "one\n");
    EXPECT_EQ(next_line(text), "\n");
    EXPECT_EQ(next_line(text), "last");
    EXPECT_EQ(next_line(text), "");
}

TEST(NextLine, CutsALongOneIntoPieces) {
    std::string_view text = "12345\n6";
    EXPECT_EQ(next_line(text, 3), "123");
    EXPECT_EQ(next_line(text, 3), "45\n");
    EXPECT_EQ(next_line(text, 3), "6");
}

TEST(TextOrEmpty, ReadsNullAsEmpty) {
    EXPECT_STREQ(text_or_empty(nullptr), "");
    EXPECT_STREQ(text_or_empty("a"), "a");
}

}  // namespace
