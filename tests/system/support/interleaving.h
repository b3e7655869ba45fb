// Whether a log is what several threads printed side by side, to the character.
#pragma once

#include <string>
#include <vector>

// What one thread prints, one entry per call of printf or puts (each is whole in the log). "{N}" stands for a
// decimal number.
using PrintedTexts = std::vector<std::string>;

// "" when `log` is exactly a merge of the threads' texts, each in its order; else what was expected where.
std::string interleaving_error(const std::string &log, const std::vector<PrintedTexts> &threads);
