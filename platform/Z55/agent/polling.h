// The status watch: polls the camera for a fixed set of events, each at its own period, and hands alarms to
// the cloud SDK. Main thread only.
#ifndef Z55_AGENT_POLLING_H
#define Z55_AGENT_POLLING_H

#include <string>

// Polls with `key` until the camera answers with an error, whose code it returns (-2 and -9: the session is
// no longer valid); 1 when the configuration cannot be read. Blocks for as long as polling goes well.
[[nodiscard]] int myPoll(const std::string &key);

// Free space of the SD card's file system in percent, by df; 100 when df says nothing or fails.
// Blocks for df (61 s at most).
int get_SDspace_percent();

#endif
