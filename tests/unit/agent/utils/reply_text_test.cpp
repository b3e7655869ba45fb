#include "agent/utils/reply_text.h"

#include "agent_test.h"

namespace {

struct ValueRow {
    const char *name, *text, *tag;
    std::optional<std::string> value;
};

class FindXmlValue : public testing::TestWithParam<ValueRow> {};

TEST_P(FindXmlValue, Gives) {
    const ValueRow &row = GetParam();
    EXPECT_EQ(row.value, find_xml_value(row.text, row.tag));
}

INSTANTIATE_TEST_SUITE_P(
    Row, FindXmlValue,
    testing::Values(ValueRow{"Element", "<a>1</a>", "a", "1"},
                    ValueRow{"Empty", "<FWVER></FWVER>", "FWVER", ""},
                    ValueRow{"FirstOnly", "<a>1</a><a>2</a>", "a", "1"},
                    ValueRow{"Nested", "<A><A>x</A></A>", "A", "<A>x"},
                    ValueRow{"Attributes", "<a b=\"1\">2</a>", "a", std::nullopt},
                    ValueRow{"SelfClosing", "<a/>", "a", std::nullopt},
                    ValueRow{"SuffixOfAnotherName", "<MaxTemp>9</MaxTemp>", "Temp", std::nullopt},
                    ValueRow{"SuffixThenItself", "<MaxTemp>9</MaxTemp><Temp>1</Temp>", "Temp", "1"},
                    ValueRow{"Raw", "<a> &lt;\n </a>", "a", " &lt;\n "},
                    ValueRow{"ClosingBeforeOpening", "</ErrorCode><ErrorCode>0", "ErrorCode", std::nullopt},
                    ValueRow{"FirstClosingCounts", "</a><a>1</a>", "a", std::nullopt},
                    ValueRow{"ClosingOnly", "1</a>", "a", std::nullopt},
                    ValueRow{"OpeningOnly", "<a>1", "a", std::nullopt},
                    ValueRow{"CaseMatters", "<A>1</A>", "a", std::nullopt},
                    ValueRow{"NoText", "", "a", std::nullopt},
                    ValueRow{"TagOf26", "<abcdefghijklmnopqrstuvwxyz>1</abcdefghijklmnopqrstuvwxyz>",
                             "abcdefghijklmnopqrstuvwxyz", "1"},
                    ValueRow{"TagOf27", "<abcdefghijklmnopqrstuvwxyz0>1</abcdefghijklmnopqrstuvwxyz0>",
                             "abcdefghijklmnopqrstuvwxyz0", std::nullopt}),
    by_name);

TEST(FindXmlValueLimits, LongTextsAndTags) {
    const std::string value(10'000, 'v');
    EXPECT_EQ(value, find_xml_value("<a>" + value + "</a>", "a"));
    const std::string tag(10'000, 't');
    EXPECT_EQ(std::nullopt, find_xml_value("<" + tag + ">1</" + tag + ">", tag.c_str()));
}

TEST(ErrorCode, ZeroIsHandedOutAndIsSuccess) {
    const std::string reply = "<Reply><ErrorCode>0</ErrorCode></Reply>";
    EXPECT_EQ("0", read_error_code(reply));
    EXPECT_EQ(0, error_code_number(reply));
    EXPECT_EQ(std::nullopt, camera_error(reply));
}

TEST(ErrorCode, AnErrorIsItsNumber) {
    const std::string reply = "<ErrorCode>-3</ErrorCode>";
    EXPECT_EQ("-3", read_error_code(reply));
    EXPECT_EQ(-3, error_code_number(reply));
    EXPECT_EQ("-3", camera_error(reply));
}

TEST(ErrorCode, AnAbsentElementIsSuccess) {
    EXPECT_EQ(std::nullopt, read_error_code("<SD>1</SD>"));
    EXPECT_EQ(0, error_code_number("<SD>1</SD>"));
    EXPECT_EQ(std::nullopt, camera_error("<SD>1</SD>"));
}

struct CodeRow {
    const char *name, *text;
    bool success;
};

class ErrorCodeNumber : public testing::TestWithParam<CodeRow> {};

TEST_P(ErrorCodeNumber, DecidesBetweenSuccessAndError) {
    const CodeRow &row = GetParam();
    const std::string reply = std::string("<ErrorCode>") + row.text + "</ErrorCode>";
    EXPECT_EQ(row.success, error_code_number(reply) == 0);
    EXPECT_EQ(row.success ? std::nullopt : std::optional<std::string>(row.text), camera_error(reply));
}

INSTANTIATE_TEST_SUITE_P(Row, ErrorCodeNumber,
                         testing::Values(CodeRow{"Zero", "0", true}, CodeRow{"TwoZeros", "00", true},
                                         CodeRow{"Lines", "\n0\n", true}, CodeRow{"Empty", "", true},
                                         CodeRow{"NoNumber", "busy", true}, CodeRow{"Error", "-2", false},
                                         CodeRow{"ErrorInLines", "\n-2\n", false},
                                         CodeRow{"ErrorAfterZeros", "007", false}),
                         by_name);

}  // namespace
