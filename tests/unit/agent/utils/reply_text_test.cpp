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
    EXPECT_EQ(find_xml_value(row.text, row.tag), row.value);
}

INSTANTIATE_TEST_SUITE_P(
    Row, FindXmlValue,
    testing::Values(
        ValueRow{.name = "Element", .text = "<a>1</a>", .tag = "a", .value = "1"},
        ValueRow{.name = "OneLetter", .text = "<f>1</f>", .tag = "f", .value = "1"},
        ValueRow{.name = "AnyLetters", .text = "<AUDIO>7</AUDIO>", .tag = "AUDIO", .value = "7"},
        ValueRow{.name = "Empty", .text = "<FWVER></FWVER>", .tag = "FWVER", .value = ""},
        ValueRow{.name = "FirstOnly", .text = "<a>1</a><a>2</a>", .tag = "a", .value = "1"},
        ValueRow{.name = "Nested", .text = "<A><A>x</A></A>", .tag = "A", .value = "<A>x"},
        ValueRow{.name = "Attributes", .text = "<a b=\"1\">2</a>", .tag = "a", .value = std::nullopt},
        ValueRow{.name = "SelfClosing", .text = "<a/>", .tag = "a", .value = std::nullopt},
        ValueRow{.name = "SuffixOfAnotherName",
                 .text = "<MaxTemp>9</MaxTemp>",
                 .tag = "Temp",
                 .value = std::nullopt},
        ValueRow{.name = "SuffixThenItself",
                 .text = "<MaxTemp>9</MaxTemp><Temp>1</Temp>",
                 .tag = "Temp",
                 .value = "1"},
        ValueRow{.name = "Raw", .text = "<a> &lt;\n </a>", .tag = "a", .value = " &lt;\n "},
        ValueRow{.name = "ClosingBeforeOpening",
                 .text = "</ErrorCode><ErrorCode>0",
                 .tag = "ErrorCode",
                 .value = std::nullopt},
        ValueRow{.name = "FirstClosingCounts", .text = "</a><a>1</a>", .tag = "a", .value = std::nullopt},
        ValueRow{.name = "ClosingOnly", .text = "1</a>", .tag = "a", .value = std::nullopt},
        ValueRow{.name = "OpeningOnly", .text = "<a>1", .tag = "a", .value = std::nullopt},
        ValueRow{.name = "CaseMatters", .text = "<A>1</A>", .tag = "a", .value = std::nullopt},
        ValueRow{.name = "NoText", .text = "", .tag = "a", .value = std::nullopt},
        ValueRow{.name = "TagOf26",
                 .text = "<abcdefghijklmnopqrstuvwxyz>1</abcdefghijklmnopqrstuvwxyz>",
                 .tag = "abcdefghijklmnopqrstuvwxyz",
                 .value = "1"},
        ValueRow{.name = "TagOf27",
                 .text = "<abcdefghijklmnopqrstuvwxyz0>1</abcdefghijklmnopqrstuvwxyz0>",
                 .tag = "abcdefghijklmnopqrstuvwxyz0",
                 .value = std::nullopt},
        ValueRow{.name = "TagWithASlash", .text = "<a></a>1<//a>", .tag = "/a", .value = "1"},
        ValueRow{.name = "TagWithBrackets", .text = "<<a><b>>1</<a><b>>", .tag = "<a><b>", .value = "1"},
        ValueRow{.name = "NoTag", .text = "<a><>1</>", .tag = "", .value = "1"},
        ValueRow{.name = "TagsOfOneCharacter", .text = "<b>2</b><a>1</a>", .tag = "a", .value = "1"},
        ValueRow{.name = "CutInAnOpening", .text = "<a>1</a", .tag = "a", .value = std::nullopt},
        ValueRow{.name = "CutBehindABracket", .text = "<a>1<", .tag = "a", .value = std::nullopt},
        ValueRow{.name = "CutBehindASlash", .text = "<a>1</", .tag = "a", .value = std::nullopt}),
    by_name);

TEST(FindXmlElements, AllInOneWalkAsEachByItself) {
    constexpr const char *kTags[] = {"Ab", "Space", "Spare", "Space", "ErrorCode", "b", "", "/Ab", "None"};
    for (const std::string text :
         {"<Space>1</Space><Spare>2</Spare><Ab>3</Ab>", "</Spare><Spare>1</Spare><Space>2<Space>3</Space>",
          "<b>1</b><>2</></Ab>3<//Ab><ErrorCode>4</ErrorCode><Ab>5</Ab>", "<Ab><Space><Spare>1</Ab>", ""}) {
        std::vector<XmlElement> elements;
        for (const char *tag : kTags) elements.push_back({tag});
        find_xml_elements(text, elements);
        for (const XmlElement &element : elements) {
            const auto value = find_xml_value(text, element.tag.data());
            EXPECT_EQ(element.text(), value) << element.tag << " in " << text;
        }
    }
}

TEST(FindXmlElements, OfWhichThereAreNone) {
    find_xml_elements("<a>1</a>", {});
}

TEST(FindXmlValueLimits, LongTextsAndTags) {
    const std::string value(10'000, 'v');
    EXPECT_EQ(find_xml_value("<a>" + value + "</a>", "a"), value);
    const std::string tag(10'000, 't');
    EXPECT_EQ(find_xml_value("<" + tag + ">1</" + tag + ">", tag.c_str()), std::nullopt);
}

TEST(ErrorCode, ZeroIsHandedOutAndIsSuccess) {
    const std::string reply = "<Reply><ErrorCode>0</ErrorCode></Reply>";
    EXPECT_EQ(read_error_code(reply), "0");
    EXPECT_EQ(error_code_number(reply), 0);
    EXPECT_EQ(camera_error(reply), std::nullopt);
}

TEST(ErrorCode, AnErrorIsItsNumber) {
    const std::string reply = "<ErrorCode>-3</ErrorCode>";
    EXPECT_EQ(read_error_code(reply), "-3");
    EXPECT_EQ(error_code_number(reply), -3);
    EXPECT_EQ(camera_error(reply), "-3");
}

TEST(ErrorCode, AnAbsentElementIsSuccess) {
    EXPECT_EQ(read_error_code("<SD>1</SD>"), std::nullopt);
    EXPECT_EQ(error_code_number("<SD>1</SD>"), 0);
    EXPECT_EQ(camera_error("<SD>1</SD>"), std::nullopt);
}

struct CodeRow {
    const char *name, *text;
    bool success;
};

class ErrorCodeNumber : public testing::TestWithParam<CodeRow> {};

TEST_P(ErrorCodeNumber, DecidesBetweenSuccessAndError) {
    const CodeRow &row = GetParam();
    const std::string reply = std::string("<ErrorCode>") + row.text + "</ErrorCode>";
    EXPECT_EQ(error_code_number(reply) == 0, row.success);
    EXPECT_EQ(camera_error(reply), row.success ? std::nullopt : std::optional<std::string>(row.text));
}

INSTANTIATE_TEST_SUITE_P(Row, ErrorCodeNumber,
                         testing::Values(CodeRow{.name = "Zero", .text = "0", .success = true},
                                         CodeRow{.name = "TwoZeros", .text = "00", .success = true},
                                         CodeRow{.name = "Lines", .text = "\n0\n", .success = true},
                                         CodeRow{.name = "Empty", .text = "", .success = true},
                                         CodeRow{.name = "NoNumber", .text = "busy", .success = true},
                                         CodeRow{.name = "Error", .text = "-2", .success = false},
                                         CodeRow{.name = "ErrorInLines", .text = "\n-2\n", .success = false},
                                         CodeRow{.name = "ErrorAfterZeros", .text = "007", .success = false}),
                         by_name);

}  // namespace
