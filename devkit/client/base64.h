// Base64 as the JSON interfaces use it: with padding, without line breaks.
#ifndef DEVKIT_CLIENT_BASE64_H
#define DEVKIT_CLIENT_BASE64_H

#include <cstdint>
#include <string>

inline constexpr char kBase64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

inline std::string to_base64(const std::string &data) {
    std::string text;
    for (size_t i = 0; i < data.size(); i += 3) {
        std::uint32_t group = 0;
        for (size_t j = 0; j < 3; ++j)
            group = group << 8 | (i + j < data.size() ? static_cast<unsigned char>(data[i + j]) : 0U);
        for (size_t j = 0; j < 4; ++j)
            text += i + j > data.size() ? '=' : kBase64Digits[group >> (18 - 6 * j) & 63];
    }
    return text;
}

// Ends at the first character that is no digit.
inline std::string from_base64(const std::string &text) {
    std::string data;
    std::uint32_t group = 0;
    int bits = 0;
    for (const char character : text) {
        const size_t digit = std::string_view(kBase64Digits).find(character);
        if (digit == std::string_view::npos) break;
        group = group << 6 | static_cast<std::uint32_t>(digit);
        bits += 6;
        if (bits >= 8) data += static_cast<char>(group >> (bits -= 8) & 255);
    }
    return data;
}

#endif
