// Texts in buffers of a fixed size: what does not fit is cut, never overrun.
#ifndef Z55_AGENT_UTILS_TEXT_H
#define Z55_AGENT_UTILS_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

// Formats into a buffer of `size` bytes: the result holds at most size - 1 characters.
__attribute__((format(printf, 2, 3))) std::string format_text(size_t size, const char *format, ...);

// Copies `text` into `out` of `size` bytes, cut to fit and always NUL-terminated.
void copy_text(char *out, size_t size, std::string_view text);

template <size_t N>
void copy_text(char (&out)[N], std::string_view text) {
    copy_text(out, N, text);
}

// `text` with all but its first size - 1 characters removed: what a buffer of `size` bytes would hold of it.
std::string cut_to_buffer(std::string text, size_t size);

// The leading decimal number of `text`, 0 when there is none, held to int's range on every target.
int to_int(const char *text);

// A C text that may be null, read as empty then.
inline const char *text_or_empty(const char *text) {
    return text != nullptr ? text : "";
}

// Takes the next line off the front of `text`, with its end, `longest` characters of it at most.
std::string_view next_line(std::string_view &text, size_t longest = std::string_view::npos);

#endif
