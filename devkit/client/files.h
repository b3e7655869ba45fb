// Files that the client reads and writes.
#ifndef DEVKIT_CLIENT_FILES_H
#define DEVKIT_CLIENT_FILES_H

#include <string>

// The content; throws with the reason, in which the file is `called` as the user called it (empty: by its
// path).
std::string read_file(const std::string &path, const std::string &called = "");

// Writes and tells of a file that the user asked for. A name without a "/" is one in the run folder.
void save_file(const std::string &name, const std::string &data);

// The samples of a sound for the camera, 12 kHz mono 16 bit: those of a WAV file, or all of a file that is
// called .raw or .pcm. Throws for any other, with what is wrong.
std::string read_samples(const std::string &path);

#endif
