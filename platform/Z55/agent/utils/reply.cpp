#include "reply.h"

bool Reply::store(size_t at, std::string_view text) {
    char *grown = static_cast<char *>(std::realloc(block_.get(), at + text.size() + 1));
    if (grown == nullptr) return false;
    [[maybe_unused]] const char *moved = block_.release();
    block_.reset(grown);
    length_ = text.copy(grown + at, text.size()) + at;
    grown[length_] = '\0';
    return true;
}
