// The device's clock: set from an NTP server, then told to the camera, at start-up and on a period.
#ifndef Z55_AK_MODEL_CLOCK_H
#define Z55_AK_MODEL_CLOCK_H

#include <ctime>
#include <string>

// What is added to the wall clock wherever a time of day leaves the agent: the product's home is UTC+8.
inline constexpr time_t kHomeOffsetSeconds = 28800;

// One synchronisation. With `direct` the transfer runs on the calling thread, else through the job queue.
// Returns 0, or -1 when ntpdate or the transfer failed. Blocks for both, for ntpdate 61 s at most.
[[nodiscard]] int perform_NTP(const std::string &key, bool direct);

// Thread routine: synchronises on the configured period for ever; its argument is the value of
// get_session_key. Returns 1 (as a pointer) when the configuration cannot be read.
void *NTP_poll(void *key_function);

#endif
