// The media on the SD card: names, pictures, growing videos. Plain functions on the card's folder; no thread
// of its own.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

// DIR/DCIM/100MEDIA.
std::filesystem::path media_folder(const std::filesystem::path &card);

// The next free file name without extension, "AAAA0001" on an empty card.
std::string next_media_name(const std::filesystem::path &card);

// The names of the videos (with extension), newest first; empty where there is no folder.
std::vector<std::string> video_names(const std::filesystem::path &card);

// Writes a file whole (temporary file and rename), with its folder where missing; false when the card does
// not take it.
bool write_media_file(const std::filesystem::path &path, const std::string &bytes);

// The first bytes of a video file; append_video_piece adds to one. Both keep it a valid chain of boxes.
std::string video_header();
bool append_video_piece(const std::filesystem::path &path, std::size_t bytes);

// Removes everything in the card's folder, the folder itself stays; false when something could not be
// removed.
bool empty_card(const std::filesystem::path &card);
