// The names of the three vendor libraries as the unit tests have them: every call is recorded, every result
// is the test's. Any thread may call anything here.
#ifndef UNIT_SUPPORT_FAKE_VENDOR_H
#define UNIT_SUPPORT_FAKE_VENDOR_H

#include <functional>
#include <string>
#include <vector>

#include "fake_os.h"
#include "sdk/ef.h"
#include "sdk/usock.h"
#include "sdk/vq_ipca.h"

namespace fake_vendor {

// Nothing recorded, every result 0, a table with the three slots of use filled, `request_vedio` 0.
void reset();

// Every call, in order, with its arguments: "vq_ipca_init(0A1B, wlan0)", "SetErrorCallback",
// "ExFramer_Capture_Init", "ExFramer_Capture_Start", "ExFramer_Capture_Stop", "send_cloud_status(1)",
// "set_video_bitrate(512)", "remove_token", "readTokenFromFile", "soapGetToken".
Texts calls();

// The result of the function of that name from now on; `action`, where given, is called first.
void result(const std::string &function, int value, std::function<void()> action = {});

// The token that readTokenFromFile stores when its result is 0.
void token(const std::string &text);

// What thread_attr asks for.
inline constexpr size_t kWorkerStack = 1024 * 1024 + 16 * 4096;  // bytes

// The SDK's function table that vq_ipca_init returns; its slots may be changed. reset() fills them anew.
mipc_api_table &table();

// What vq_ipca_init, ExFramer_Capture_Init and SetErrorCallback were handed last; null before.
const device_callbacks *callbacks();
void (*sink())(captured_frame *);
int (*error_callback())(int);

// Whether slot 14 was handed the table itself at every call, and what it was handed.
std::vector<alarm_record> alarms();
bool alarms_name_the_table();
void alarm_result(int value);

// Frames that slots 0 and 7 were handed: the record as it was and a copy of its data, which is freed.
struct VideoFrame {
    video_record record;
    std::string data;
};
struct AudioFrame {
    audio_record record;
    std::string data;
};
std::vector<VideoFrame> video_frames();
std::vector<AudioFrame> audio_frames();

}  // namespace fake_vendor

#endif
