// What the client prints: text for a person or, with --json, one object a line; never both.
#ifndef DEVKIT_CLIENT_OUTPUT_H
#define DEVKIT_CLIENT_OUTPUT_H

#include <nlohmann/json.hpp>
#include <string>

void choose_json();
bool json_chosen();

// A line of standard output, at once: `text`, or with --json `object`.
void put(const std::string &text, const nlohmann::json &object);

// Any value: with --json on one line ({"value":...} where it is no object), as text a line for each member.
void put_value(const nlohmann::json &value, const std::string &name = "value");

// A sentence on standard error; with --json {"error":...}.
void put_error(const std::string &sentence);

enum class Colour { dim, good, bad, warm, cold };

// `text` in a colour where standard output is a terminal and NO_COLOR is not set.
std::string coloured(Colour colour, const std::string &text);

// A value on one line: texts bare, "a, b" for arrays, "a 1, b 2" for objects.
std::string inline_text(const nlohmann::json &value);

// A text with a blank for each control character.
std::string one_line(std::string text);

// 1234567 as "1.2 MB".
std::string bytes_text(double bytes);

// The clock time of seconds since 1970, "12:03:04".
std::string clock_text(std::int64_t seconds);

#endif
