// The configuration file: key=value lines, read afresh at each use, single values rewritten in place. Any
// thread. Rewrites are one at a time and replace the file whole, so a reader sees the old file or the new
// one.
#ifndef Z55_AGENT_UTILS_CONF_FILE_H
#define Z55_AGENT_UTILS_CONF_FILE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr char kConfPath[] = "/tmp/working/VeloAgent.conf";

struct conf_pair {
    std::string key;
    std::string value;
};

// `line` without leading and trailing white space.
std::string_view trim_line(std::string_view line);

// Every key=value line of `path` in file order; nothing when the file cannot be read.
[[nodiscard]] std::optional<std::vector<conf_pair>> read_conf_pairs(const char *path);

// The value of the first line with `key`, "" when there is none; nothing, errno set, when the file cannot be
// read. What stands behind that line is not read.
[[nodiscard]] std::optional<std::string> conf_value(std::string_view key, const char *path = kConfPath);

// The same of kConfPath into a buffer, cut to fit and emptied first. Returns false, errno set, when the file
// cannot be read.
bool conf_value_into(char *out, size_t size, std::string_view key);

template <size_t N>
bool conf_value_into(char (&out)[N], std::string_view key) {
    return conf_value_into(out, N, key);
}

// The value as a decimal number, 0 when it is none; `if_missing` when the file has no such key; nothing,
// errno set, when the file cannot be read.
[[nodiscard]] std::optional<int> conf_number(std::string_view key, int if_missing);

// Replaces the value of the first line with `key`, cut at its first line end; a key that the file lacks is
// not added. Comments and blank lines go. A value that the file holds already is not written again. Returns
// 0, or 1 after a log line with the key and the error when the file cannot be written and stays as it is.
// Blocks for the disk.
[[nodiscard]] int write_conf_value(std::string_view key, std::string_view value,
                                   const char *path = kConfPath);

#endif
