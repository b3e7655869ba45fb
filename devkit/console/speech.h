// A typed sentence as the talk-back takes it.
#pragma once

#include <string>

// 12 kHz mono 16-bit samples of what espeak-ng says; "" where it is not installed or says nothing. Blocks
// some 100 ms.
std::string spoken(const std::string &sentence);
