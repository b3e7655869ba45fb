#include "handler_value.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "../agent/utils/text.h"
#include "../agent/utils/transfer.h"
#include "../exports.h"
#include "../log_sources.h"
#include "../shared.h"

namespace {

constexpr int kFailureLength = 5;  // of "ERROR"

}  // namespace

char *new_handler_value(char **value) {
    if (value == nullptr) return nullptr;
    *value = static_cast<char *>(std::calloc(1, kValueSize));
    if (*value == nullptr) std::puts("not enough memory for a value");
    return *value;
}

int set_handler_value(char *buffer, std::string_view text) {
    if (buffer == nullptr) return kFailureLength;
    copy_text(buffer, kValueSize, text);
    return static_cast<int>(std::strlen(buffer));
}

int set_handler_error(char *buffer) {
    set_handler_value(buffer, "ERROR");
    return kFailureLength;
}

void log_no_reply(int line) {
    std::printf("res !=CURLE_OK: %s,line %d\n", kModelSource, line);
    std::fprintf(stderr, "curl failed : %s  (%s, %d)\n", transfer_error_text(load_shared(res)), kModelSource,
                 line);
}
