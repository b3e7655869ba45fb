// The answer of the SDK's read handlers: a zeroed 130-byte malloc buffer that the SDK owns from the start.
#ifndef Z55_AK_MODEL_HANDLER_VALUE_H
#define Z55_AK_MODEL_HANDLER_VALUE_H

#include <string_view>

inline constexpr size_t kValueSize = 130;

// Allocates the buffer and hands it out through `value`, which may be null (nothing is allocated then).
// Returns the buffer, null when there is none.
char *new_handler_value(char **value);

// Puts `text`, cut to fit, into the buffer. Returns the length of what it then holds; 5, as for a failure,
// where the buffer is null.
int set_handler_value(char *buffer, std::string_view text);

// Puts "ERROR" there and returns 5.
int set_handler_error(char *buffer);

// Says that a GET brought no reply: a log line and, on standard error, libcurl's message for `res`.
void log_no_reply(int line);

#endif
