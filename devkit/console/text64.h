// Bytes as base64.
#pragma once

#include <string>

inline std::string to_base64(const std::string &bytes) {
    constexpr char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t at = 0; at < bytes.size(); at += 3) {
        unsigned group = 0;
        for (size_t i = 0; i < 3; i++)
            group = group << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0);
        for (unsigned i = 0; i < 4; i++)
            text += at + i > bytes.size() ? '=' : kLetters[group >> (18 - 6 * i) & 63];
    }
    return text;
}
