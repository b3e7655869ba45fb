// The agent's configuration file as a test writes it.
#pragma once

#include <map>
#include <optional>
#include <string>

using ConfValues = std::map<std::string, std::optional<std::string>>;  // no value: the key is left out

// Every key with a value that suits a test: those of the sample configuration, where there is one, under the
// test's own. Periods are short, everything but the quota watch is armed.
ConfValues default_conf(const std::string &host);

std::string conf_text(const ConfValues &values);

// The value of `key` in a configuration file's text, "" when it is not there.
std::string conf_text_value(const std::string &text, const std::string &key);
