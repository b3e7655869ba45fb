// The configuration file: a key and a value, each up to 0xFF, then the file's bytes.
#include "agent/utils/conf_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "exports.h"
#include "support/fuzz.h"

namespace {

constexpr size_t kLineCharacters = 1022;  // that one reading takes

using Pairs = std::vector<conf_pair>;

bool same(const Pairs &a, const Pairs &b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); i++) {
        if (a[i].key != b[i].key || a[i].value != b[i].value) return false;
    }
    return true;
}

std::string reference_trim(std::string text) {
    while (!text.empty() && is_space(text.back())) text.pop_back();
    while (!text.empty() && is_space(text.front())) text.erase(0, 1);
    return text;
}

void take_line(Pairs &pairs, const std::string &line) {
    const std::string text = reference_trim(until_nul(line));
    const size_t equals = text.find('=');
    if (text.empty() || text[0] == '#' || equals == std::string::npos) return;
    pairs.push_back({text.substr(0, equals), text.substr(equals + 1)});
}

Pairs reference_pairs(const std::string &file) {
    Pairs pairs;
    std::string line;
    for (const char c : file) {
        line += c;
        if (c != '\n' && line.size() < kLineCharacters) continue;
        take_line(pairs, line);
        line.clear();
    }
    take_line(pairs, line);
    return pairs;
}

// What a reader gets of a value that was written: one line's worth of it, without the white space at its end.
std::string reference_cut(const std::string &key, const std::string &value) {
    std::string cut;
    for (const char c : value) {
        if (c == '\r' || c == '\n' || key.size() + 2 + cut.size() >= kLineCharacters) break;
        cut += c;
    }
    cut = until_nul(cut);
    while (!cut.empty() && is_space(cut.back())) cut.pop_back();
    return cut;
}

conf_pair *find(Pairs &pairs, const std::string &key) {
    for (conf_pair &pair : pairs) {
        if (pair.key == key) return &pair;
    }
    return nullptr;
}

void check_reading(const std::string &key, Pairs &expected) {
    const auto pairs = read_conf_pairs(kConfPath);
    check(pairs && same(*pairs, expected), "every key=value line is read, in the file's order");
    const conf_pair *found = find(expected, key);
    check(conf_value(key) == (found != nullptr ? found->value : std::string()),
          "a value is the first line's with the key, empty without one");
    const int number = found != nullptr ? reference_number(until_nul(found->value.substr(0, 15))) : -7;
    check(conf_number(key, -7) == number, "a number is the value's first 15 characters'");
    char host[16];
    check(conf_value_into(host, key), "a file that is there is read into a buffer");
    check(host == (found != nullptr ? found->value.substr(0, sizeof host - 1) : ""), "it takes what fits");
    char out[kLineCharacters];
    std::memset(out, 'x', sizeof out);
    check(read_conf_value(until_nul(key).c_str(), out, kConfPath) == 0, "a file that is there is read");
    if (key != until_nul(key)) return;
    if (found == nullptr) check(out[0] == 'x', "without the key the caller's buffer is left alone");
    if (found != nullptr) check(out == found->value, "the exported reader gives the same value");
}

void check_writing(const std::string &key, const std::string &value, Pairs expected) {
    if (conf_pair *found = find(expected, key)) found->value = reference_cut(key, value);
    check(write_conf_value(key, value) == 0, "a file that can be written is written");
    const std::string written = read_file(kConfPath);
    check(same(reference_pairs(written), expected),
          "the value is as cut, and no other line is changed or lost");
    struct stat before {
    }, after{};
    stat(kConfPath, &before);
    // White space at the value's end is lost in the file, so such a value is another each time.
    const std::string again = find(expected, key) != nullptr ? find(expected, key)->value : value;
    check(write_conf_value(key, again) == 0, "a value can be written again");
    stat(kConfPath, &after);
    check(before.st_ino == after.st_ino, "a value that the file holds is not written again");
    check(read_file(kConfPath) == written, "writing the same value twice changes nothing");
}

// A folder in the file's place can be opened, and no reading of it succeeds.
void check_unreadable(const std::string &key, const std::string &value) {
    unlink(kConfPath);
    check(mkdir(kConfPath, 0755) == 0, "the file's place is free");
    char host[16] = "left over";
    check(!conf_value_into(host, key) && host[0] == '\0', "the buffer is emptied first");
    check(!read_conf_pairs(kConfPath) && !conf_value(key) && !conf_number(key, 0), "nothing is read");
    check(write_conf_value(key, value) == 1, "what cannot be read is not written");
    check(rmdir(kConfPath) == 0, "and stays as it is");
}

}  // namespace

void prepare() {}

void try_input(Input input) {
    const std::string key = input.text(), value = input.text(), file = input.rest();
    write_file(kConfPath, file);
    Pairs expected = reference_pairs(file);
    check_reading(key, expected);
    check_writing(key, value, expected);
    check_unreadable(key, value);
}
