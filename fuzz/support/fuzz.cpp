#include "fuzz.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstring>

#include "wire.h"

namespace {

int voice = 2;  // standard error, also where the product's is closed

}  // namespace

void violated(const char *rule) {
    dprintf(voice, "VIOLATED: %s\n", rule);
    std::abort();
}

uint8_t Input::byte() {
    if (rest_.empty()) return 0;
    const uint8_t first = static_cast<uint8_t>(rest_[0]);
    rest_.remove_prefix(1);
    return first;
}

uint32_t Input::number() {
    uint32_t value = 0;
    for (unsigned shift = 0; shift < 32; shift += 8) value |= static_cast<uint32_t>(byte()) << shift;
    return value;
}

std::string Input::text() {
    const std::string taken = bytes(std::min(rest_.find('\xFF'), rest_.size()));
    byte();
    return taken;
}

std::string Input::bytes(size_t most) {
    const std::string taken(rest_.substr(0, most));
    rest_.remove_prefix(taken.size());
    return taken;
}

Block::Block(std::string_view text)
    : data(static_cast<char *>(std::malloc(std::max<size_t>(text.size(), 1)))), size(text.size()) {
    if (!data) violated("there is memory for the input");
    text.copy(data.get(), size);
}

void write_file(const char *path, std::string_view text) {
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const bool written =
        file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (file >= 0) close(file);
    check(written, "a target can write its files: it runs in a device view");
}

std::string read_file(const char *path) {
    std::string text;
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    check(file >= 0, "the file is still there");
    char piece[4096];
    for (ssize_t count; (count = read(file, piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<size_t>(count));
    close(file);
    return text;
}

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

int reference_number(std::string_view text) {
    size_t at = 0;
    while (at < text.size() && is_space(text[at])) at++;
    const bool negative = at < text.size() && text[at] == '-';
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) at++;
    long long value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; at++) {
        if (value <= UINT_MAX) value = value * 10 + (text[at] - '0');
    }
    if (negative) value = -value;
    return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

std::string until_nul(std::string_view text) {
    return std::string(text.substr(0, text.find('\0')));
}

// --- What libFuzzer and the replay call.

extern "C" __attribute__((visibility("default"))) int LLVMFuzzerInitialize(int *, char ***) {
    voice = dup(STDERR_FILENO);
    if (std::freopen("/dev/null", "w", stdout) == nullptr) violated("there is a /dev/null");
    mkdir("/tmp/working", 0755);
    prepare();
    return 0;
}

extern "C" __attribute__((visibility("default"))) int LLVMFuzzerTestOneInput(const uint8_t *data,
                                                                             size_t size) {
    try_input(Input({reinterpret_cast<const char *>(data), size}));
    wire::forget();
    return 0;
}
