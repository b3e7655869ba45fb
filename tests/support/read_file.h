// A file's bytes.
#ifndef TESTS_SUPPORT_READ_FILE_H
#define TESTS_SUPPORT_READ_FILE_H

#include <fstream>
#include <iterator>
#include <string>

// The whole of it, "" when there is none.
inline std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

#endif
