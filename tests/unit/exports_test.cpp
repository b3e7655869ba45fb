// What the SDK finds in the exported variables before anything of the agent has run.
#include "exports.h"

#include <gtest/gtest.h>

namespace {

// Read before main: tests change them.
struct FirstValues {
    int res = ::res, video_recording = ::video_recording, resolution_type = gResolutionType;
    int ntp_fail = NTP_FAIL, ota_enable = ::ota_enable, frame_flag = get_frame_callback_flag;
    bool sdk = mipc_api != nullptr, response = ::response != nullptr;
    char texts[6] = {hostIP[0], device[0], stream[0], password[0], cookie[0], post_fields[0]};
};
const FirstValues kFirst;

TEST(Exports, AreAsTheSdkExpectsThemAtTheStart) {
    EXPECT_EQ(kFirst.res, 0);
    EXPECT_EQ(kFirst.video_recording, 0);
    EXPECT_EQ(kFirst.resolution_type, 1);
    EXPECT_EQ(kFirst.ntp_fail, 0);
    EXPECT_EQ(kFirst.ota_enable, 0);
    EXPECT_EQ(kFirst.frame_flag, 0);
    EXPECT_FALSE(kFirst.sdk);
    EXPECT_FALSE(kFirst.response);
    for (const char text : kFirst.texts) EXPECT_EQ(text, '\0');
}

}  // namespace
