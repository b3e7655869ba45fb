// The exported variables that no single module owns: plain names of plain types, for the SDK. exports.h tells
// who writes each and when; the agent touches the shared ones through shared.h.
#include "exports.h"

constinit mipc_api_table *mipc_api = nullptr;

constinit char hostIP[16] = {};
constinit char device[30] = {};
constinit char stream[30] = {};
constinit char password[30] = {};

constinit char cookie[50] = {};
constinit char post_fields[350] = {};
constinit char *response = nullptr;
constinit int res = 0;

constinit int video_recording = 0;
constinit int gResolutionType = 1;
constinit int NTP_FAIL = 0;
constinit int ota_enable = 0;
constinit int get_frame_callback_flag = 0;

constinit pthread_t resolutionChange_t{};
constinit pthread_t recVideo_t{};
constinit pthread_t audioback_thread{};
constinit pthread_attr_t resolutionChange_attr{};
constinit pthread_attr_t recVideo_attr{};
constinit pthread_attr_t audioback_attr{};

// RIFF, PCM, 1 channel, 12000 samples and 24000 bytes per second, 16 bits; both sizes are filled in per clip.
constinit unsigned char wav_header[44] = {
    'R', 'I', 'F',  'F',  0, 0, 0,    0,    'W', 'A', 'V', 'E', 'f', 'm', 't', ' ', 16,  0,   0, 0, 1, 0,
    1,   0,   0xE0, 0x2E, 0, 0, 0xC0, 0x5D, 0,   0,   2,   0,   16,  0,   'd', 'a', 't', 'a', 0, 0, 0, 0};
constinit int wav_header_len = sizeof wav_header;
constinit char g_dir[64] = {};
