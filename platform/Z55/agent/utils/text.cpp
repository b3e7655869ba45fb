#include "text.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

std::string format_text(size_t size, const char *format, ...) {
    std::string text(size, '\0');
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text.data(), size, format, arguments);
    va_end(arguments);
    text.resize(length < 0 ? 0 : std::min(static_cast<size_t>(length), size - 1));
    return text;
}

void copy_text(char *out, size_t size, std::string_view text) {
    out[text.copy(out, size - 1)] = '\0';
}

std::string cut_to_buffer(std::string text, size_t size) {
    if (text.size() >= size) text.resize(size - 1);
    return text;
}

int to_int(const char *text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}

std::string_view next_line(std::string_view &text, size_t longest) {
    const size_t end = text.find('\n');
    const size_t size = end == std::string_view::npos ? text.size() : end + 1;
    const std::string_view line = text.substr(0, std::min(size, longest));
    text.remove_prefix(line.size());
    return line;
}
