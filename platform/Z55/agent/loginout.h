// Login to the camera's CGI, and the files that it leaves.
#ifndef Z55_AGENT_LOGINOUT_H
#define Z55_AGENT_LOGINOUT_H

#include <optional>
#include <string>

// What the camera says at each login that it runs.
inline constexpr char kFirmwareVersionFile[] = "/tmp/FWVER.txt";

// Logs in and tries again every 5 s until a key is held; copies the key into `out` of kSessionKeySize bytes,
// which becomes what copy_session_key hands out, and returns 0. Main thread. Blocks without limit.
int getSessionKey(char *out);

// Reads the four login settings into hostIP, device, stream and password; stops with a log line at the first
// that cannot be read. Called before the SDK starts.
void load_login_settings();

// The key in a "Session=" response header: its first character whatever it is, then the digits that follow.
[[nodiscard]] std::optional<std::string> getSessionKeyInHeader(const char *header);

// Replaces the file named by "COOKIE", if any, by one that holds the key and only its owner may read. A link
// in its place is not followed.
void save_cookie_file(const char *key);

#endif
