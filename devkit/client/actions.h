// The commands that are more than one request. Each takes its arguments and returns the exit code.
#ifndef DEVKIT_CLIENT_ACTIONS_H
#define DEVKIT_CLIENT_ACTIONS_H

#include "commands.h"

int order_fault(const texts &arguments);    // ENDPOINT KIND [VALUE] [COUNT] [NAME=VALUE...]
int save_audio(const texts &arguments);     // N FILE
int save_photo(const texts &arguments);     // FILE
int take_snapshot(const texts &arguments);  // FILE [MODE]
int talk(const texts &arguments);           // FILE [PACE]
int save_frames(const texts &arguments);    // H264 AAC [SECONDS]
int reboot_device(const texts &arguments);  // none
int call_handler(const texts &arguments);   // NAME [ARGUMENT...]
int set_token(const texts &arguments);      // TOKEN, or "none"
int recording_log(const texts &arguments);  // none
int print_file(const texts &arguments);     // PATH on the device
int list_folder(const texts &arguments);    // PATH on the device
int send_plain(const texts &arguments);     // camera|sdk METHOD PATH [JSON]

#endif
