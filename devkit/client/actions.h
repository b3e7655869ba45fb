// The commands that are more than one request. Each takes its arguments and returns the exit code.
#ifndef DEVKIT_CLIENT_ACTIONS_H
#define DEVKIT_CLIENT_ACTIONS_H

#include "commands.h"

int order_fault(const Texts &arguments);    // ENDPOINT KIND [VALUE] [COUNT] [NAME=VALUE...]
int save_audio(const Texts &arguments);     // N FILE
int save_photo(const Texts &arguments);     // FILE
int take_snapshot(const Texts &arguments);  // FILE [MODE]
int talk(const Texts &arguments);           // FILE [PACE]
int save_frames(const Texts &arguments);    // H264 AAC [SECONDS]
int reboot_device(const Texts &arguments);  // none
int call_handler(const Texts &arguments);   // NAME [ARGUMENT...]
int set_token(const Texts &arguments);      // TOKEN, or "none"
int recording_log(const Texts &arguments);  // none
int print_file(const Texts &arguments);     // PATH on the device
int list_folder(const Texts &arguments);    // PATH on the device
int send_plain(const Texts &arguments);     // camera|sdk METHOD PATH [JSON]

#endif
