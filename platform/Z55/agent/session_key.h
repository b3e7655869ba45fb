// The session key: where it is held, and the ways to it. The hook's, which any thread has; the
// configuration's, which is the last login's; and waiting for one. Any thread, unless it says otherwise.
#ifndef Z55_AGENT_SESSION_KEY_H
#define Z55_AGENT_SESSION_KEY_H

#include <optional>
#include <string>
#include <string_view>

inline constexpr size_t kSessionKeySize = 30;  // bytes of every key buffer

// The buffer behind the hook; getSessionKey's argument on the main thread. Written under a lock.
extern char session_key_buffer[kSessionKeySize];

// Copies `key` into `out` of kSessionKeySize bytes, under the buffer's lock, and wakes who waits for a key.
void store_session_key(char *out, const std::string &key);

// Empties the session key (all bytes). Main thread.
void clear_session_key();

// A fresh malloc copy of the session key, null while none is held. The value of the hook get_session_key.
char *copy_session_key();

// The key that the hook hands out now; nothing while none is held.
std::optional<std::string> session_key();

// The same, waiting without limit until a key is held.
std::string wait_for_session_key();

// The key that the configuration holds, cut to a key buffer: the last login's, "" where that failed. Where it
// could not be written it is what it should hold, so that a key known to be expired is never used again.
// Nothing when the configuration cannot be read.
std::optional<std::string> configured_session_key();

// Stores `key` in the configuration, or where that cannot be written keeps it as what should stand there: the
// one that does may have expired. Blocks for the disk; one thread at a time.
void store_configured_key(std::string_view key);

// "Session=" and `key`, as every request's cookie has it.
std::string session_cookie(const std::string &key);

#endif
