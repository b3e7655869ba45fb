// The commands that are more than one request. Each takes its arguments and returns the exit code.
#ifndef DEVKIT_CLIENT_ACTIONS_H
#define DEVKIT_CLIENT_ACTIONS_H

#include "commands.h"

int order_fault(const Given &given);    // ENDPOINT KIND [VALUE] [COUNT] [NAME=VALUE...]
int save_audio(const Given &given);     // N FILE
int save_photo(const Given &given);     // FILE
int take_snapshot(const Given &given);  // FILE [MODE]
int talk(const Given &given);           // FILE [PACE]
int save_frames(const Given &given);    // H264 AAC [SECONDS]
int reboot_device(const Given &given);  // none
int call_handler(const Given &given);   // NAME [ARGUMENT...]
int set_token(const Given &given);      // TOKEN, or "none"
int recording_log(const Given &given);  // none
int print_file(const Given &given);     // PATH on the device
int list_folder(const Given &given);    // PATH on the device
int send_plain(const Given &given);     // camera|sdk METHOD PATH [JSON]

#endif
