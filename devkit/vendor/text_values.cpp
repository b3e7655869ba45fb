#include "text_values.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include "json_http.h"

namespace desk {
namespace {

constexpr char kBase64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool is_utf8(const std::string &text) {
    try {
        (void)json(text).dump();
        return true;
    } catch (const json::exception &) {
        return false;
    }
}

}  // namespace

std::string to_hex(const void *bytes, size_t length) {
    const auto *at = static_cast<const uint8_t *>(bytes);
    std::string text;
    text.reserve(length * 2);
    for (size_t i = 0; i < length; i++) {
        text += "0123456789abcdef"[at[i] >> 4];
        text += "0123456789abcdef"[at[i] & 15];
    }
    return text;
}

std::string to_base64(const void *bytes, size_t length) {
    const auto *at = static_cast<const uint8_t *>(bytes);
    std::string text;
    text.reserve((length + 2) / 3 * 4);
    for (size_t i = 0; i < length; i += 3) {
        const size_t rest = length - i;
        const uint32_t group =
            uint32_t{at[i]} << 16 | (rest > 1 ? uint32_t{at[i + 1]} << 8 : 0) | (rest > 2 ? at[i + 2] : 0);
        text += kBase64Digits[group >> 18];
        text += kBase64Digits[group >> 12 & 63];
        text += rest > 1 ? kBase64Digits[group >> 6 & 63] : '=';
        text += rest > 2 ? kBase64Digits[group & 63] : '=';
    }
    return text;
}

std::string from_base64(const std::string &text) {
    std::string bytes;
    uint32_t group = 0;
    int bits = 0;
    for (const char digit : text) {
        if (digit == '=' || digit == '\n' || digit == '\r') continue;
        const char *found = digit == '\0' ? nullptr : strchr(kBase64Digits, digit);
        if (found == nullptr) throw BadRequest{"not base64"};
        group = group << 6 | static_cast<uint32_t>(found - kBase64Digits);
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        bytes += static_cast<char>(group >> bits & 0xff);
    }
    return bytes;
}

json text_value(const char *text) {
    return text == nullptr ? json() : text_value(std::string(text));
}

json text_value(const std::string &text) {
    if (is_utf8(text)) return text;
    std::string widened;
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        if (byte >= 0x80) widened += static_cast<char>(0xc0 | byte >> 6);
        widened += static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3f));
    }
    return widened;
}

std::optional<std::string> text_argument(const json &value) {
    if (value.is_null()) return std::nullopt;
    if (value.is_string()) return value.get<std::string>();
    if (value.contains("base64")) return from_base64(value.at("base64"));
    if (!value.contains("repeat")) throw BadRequest{"not a text: " + json_text(value)};
    const std::string piece = value.at("repeat");
    std::string text;
    for (int i = 0; i < value.at("times").get<int>(); i++) text += piece;
    return text;
}

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw BadRequest{"cannot read " + path};
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace desk
