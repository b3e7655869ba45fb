// The hub, the causes of alarms, the spoken sentence.
#include <gtest/gtest.h>

#include <cstdlib>

#include "alarm_causes.h"
#include "hub.h"
#include "speech.h"

namespace {

using std::chrono::milliseconds;

std::string all_of(Listener &from) {
    std::string text;
    for (auto event = from.next(milliseconds(0)); event && !event->empty();
         event = from.next(milliseconds(0)))
        text += *event;
    return text;
}

TEST(Hub, AListenerGetsTheStateAndThenTheChanges) {
    Hub page;
    page.set("camera", {{"battery", 90}});
    page.add("log", json::array({"a", "b", "c"}), 2);
    const auto open = page.listen();
    EXPECT_EQ(all_of(*open),
              "event: hello\ndata: {}\n\nevent: camera\ndata: {\"battery\":90}\n\n"
              "event: log\ndata: [\"b\",\"c\"]\n\nevent: ready\ndata: {}\n\n");
    page.set("camera", {{"battery", 90}});
    page.add("log", json::array({"d"}), 2);
    page.set("camera", {{"battery", 80}});
    EXPECT_EQ(all_of(*open), "event: log\ndata: [\"d\"]\n\nevent: camera\ndata: {\"battery\":80}\n\n");
    EXPECT_EQ(page.state(), json::parse(R"({"camera":{"battery":80},"log":["c","d"]})"));
}

TEST(Hub, WhoNeverListensIsEnded) {
    Hub page;
    const auto slow = page.listen(), quick = page.listen();
    for (int i = 0; i < 5000; i++) {
        page.set("n", i);
        ASSERT_TRUE(quick->next(milliseconds(0)));
    }
    EXPECT_EQ(slow->next(milliseconds(0)), nullptr);
    EXPECT_TRUE(quick->next(milliseconds(0)));
}

TEST(Hub, BytesThatAreNoTextHarmNobody) {
    Hub page;
    const auto open = page.listen();
    page.add("log", json::array({"\xff\xfe"}), 10);
    EXPECT_NE(all_of(*open).find("event: log"), std::string::npos);
}

struct CauseCase {
    int status;
    const char *title, *raised;
};

class Cause : public testing::TestWithParam<CauseCase> {};

TEST_P(Cause, TellsValueAndThreshold) {
    const json camera{
        {"status", {{"Battery", "5"}, {"Temperature", "41"}, {"TemperatureMax", "35"}, {"SD", "0"}}}};
    const json conf{{"BATTERY_LOW", "20"}, {"SDCARD_LOW", "10"}};
    const json cause = alarm_cause(GetParam().status, camera, conf);
    EXPECT_EQ(cause["title"], GetParam().title);
    EXPECT_EQ(cause["raised"], GetParam().raised);
}

INSTANTIATE_TEST_SUITE_P(
    Row, Cause,
    testing::Values(CauseCase{1, "Motion", "MotionEvent was 1"},
                    CauseCase{10, "Too warm", "Temperature 41 over 35"},
                    CauseCase{11, "Card nearly full", "free space under SDCARD_LOW 10 %"},
                    CauseCase{13, "Battery low", "Battery 5 under BATTERY_LOW 20"},
                    CauseCase{14, "Too cold", "Temperature 41 under ?"}, CauseCase{15, "No card", "SD was 0"},
                    CauseCase{99, "Alarm 99", ""}));

TEST(Cause, NothingKnownIsSaidAsSuch) {
    EXPECT_EQ(alarm_cause(13, nullptr, nullptr)["raised"], "Battery ? under BATTERY_LOW ?");
}

TEST(Speech, ASentenceBecomesASecondOrMoreOfSound) {
    if (std::system("command -v espeak-ng >/dev/null") != 0) GTEST_SKIP() << "no espeak-ng here";
    const std::string samples = spoken("--version is said, not obeyed");
    EXPECT_GT(samples.size(), 24000U);
    EXPECT_LT(samples.size(), 240000U);
    EXPECT_EQ(samples.size() % 2, 0U);
}

}  // namespace
