// Login to the camera's CGI: the session key, its files, and the hook through which every thread gets its own
// copy.
#ifndef Z55_AGENT_LOGINOUT_H
#define Z55_AGENT_LOGINOUT_H

#include <optional>
#include <string>

inline constexpr size_t kSessionKeySize = 30;  // bytes of every key buffer

// Logs in and tries again every 5 s until a key is held; copies the key into `out` of kSessionKeySize bytes,
// which becomes what copy_session_key hands out, and returns 0. Main thread. Blocks without limit.
int getSessionKey(char *out);

// The buffer behind the hook; getSessionKey's argument on the main thread. Written under a lock.
extern char session_key_buffer[kSessionKeySize];

// Empties the session key (all bytes). Main thread.
void clear_session_key();

// A fresh malloc copy of the session key, null while none is held. Any thread. The value of the hook
// get_session_key.
char *copy_session_key();

// The key that the hook hands out now; nothing while none is held. Any thread.
std::optional<std::string> session_key();

// The same, waiting without limit until a key is held.
std::string wait_for_session_key();

// The key that the configuration holds, cut to a key buffer: the last login's, "" where that failed. Where it
// could not be written it is what it should hold, so that a key known to be expired is never used again.
// Nothing when the configuration cannot be read. Any thread.
std::optional<std::string> configured_session_key();

// "Session=" and `key`, as every request's cookie has it.
std::string session_cookie(const std::string &key);

// Reads the four login settings into hostIP, device, stream and password; stops with a log line at the first
// that cannot be read. Called before the SDK starts.
void load_login_settings();

// The key in a "Session=" response header: its first character whatever it is, then the digits that follow.
std::optional<std::string> getSessionKeyInHeader(const char *header);

// Replaces the file named by "COOKIE", if any, by one that holds the key and only its owner may read. A link
// in its place is not followed.
void save_cookie_file(const char *key);

#endif
