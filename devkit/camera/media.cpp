#include "media.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>

namespace fs = std::filesystem;

namespace {

// A box is a length of four bytes (big-endian, itself included), a name of four letters, and its content.
std::string video_box(const char *name, const std::string &content) {
    const std::size_t length = content.size() + 8;
    std::string box;
    for (int shift = 24; shift >= 0; shift -= 8) box += static_cast<char>(length >> shift & 0xFF);
    return box + name + content;
}

// The number in "AAAA0001.XYZ", 10000 and above as "AAAB0000"; -1 for other names.
int media_number(const std::string &name) {
    char letter = 0;
    int number = 0;
    if (std::sscanf(name.c_str(), "AAA%c%4d.", &letter, &number) != 2 || letter < 'A' || letter > 'Z')
        return -1;
    return (letter - 'A') * 10000 + number;
}

}  // namespace

fs::path media_folder(const fs::path &card) {
    return card / "DCIM" / "100MEDIA";
}

std::string next_media_name(const fs::path &card) {
    int number = 0;
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(media_folder(card), ignored))
        number = std::max(number, media_number(entry.path().filename()));
    ++number;
    char name[16];
    std::snprintf(name, sizeof name, "AAA%c%04u", static_cast<char>('A' + number / 10000 % 26),
                  static_cast<unsigned>(number) % 10000);
    return name;
}

std::vector<std::string> video_names(const fs::path &card) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto &entry : fs::directory_iterator(media_folder(card), ignored))
        if (entry.path().extension() == ".MP4") names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end(), std::greater<>());
    return names;
}

bool write_media_file(const fs::path &path, const std::string &bytes) {
    std::error_code error;
    fs::create_directories(path.parent_path(), error);
    const fs::path temporary = path.parent_path() / ("." + path.filename().string());
    std::ofstream file(temporary, std::ios::binary);
    file << bytes;
    file.close();
    if (file) fs::rename(temporary, path, error);
    if (file && !error) return true;
    fs::remove(temporary, error);
    return false;
}

std::string video_header() {
    return video_box("ftyp", std::string("isom\0\0\2\0isommp42", 16));
}

bool append_video_piece(const fs::path &path, std::size_t bytes) {
    // Without ios::in a missing file would be made anew; a video that was taken away stays away.
    std::ofstream file(path, std::ios::binary | std::ios::in | std::ios::ate);
    file << video_box("free", std::string(bytes - 8, '\0'));
    file.close();
    return static_cast<bool>(file);
}

bool empty_card(const fs::path &card) {
    std::error_code error;
    std::vector<fs::path> entries;
    for (const auto &entry : fs::directory_iterator(card, error)) entries.push_back(entry.path());
    bool removed = true;
    for (const auto &entry : entries) {
        fs::remove_all(entry, error);
        removed = removed && !error;
    }
    return removed;
}
