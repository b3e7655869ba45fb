#include "sdk_variables.h"

#include <dlfcn.h>

#include <cstdint>

#include "text_values.h"

namespace desk {
namespace {

enum class Kind { number, text, text_pointer, bytes, pointer };

struct VariableRow {
    const char *name;
    Kind type;
    size_t size;
};

// A name that is not listed is read as a pointer: it tells only whether it is null.
constexpr VariableRow kVariables[] = {
    {"request_vedio", Kind::number, 4},
    {"res", Kind::number, 4},
    {"video_recording", Kind::number, 4},
    {"gResolutionType", Kind::number, 4},
    {"NTP_FAIL", Kind::number, 4},
    {"ota_enable", Kind::number, 4},
    {"get_frame_callback_flag", Kind::number, 4},
    {"wav_header_len", Kind::number, 4},
    {"hostIP", Kind::text, 16},
    {"device", Kind::text, 30},
    {"stream", Kind::text, 30},
    {"password", Kind::text, 30},
    {"cookie", Kind::text, 50},
    {"post_fields", Kind::text, 350},
    {"g_dir", Kind::text, 64},
    {"response", Kind::text_pointer, sizeof(char *)},
    {"wav_header", Kind::bytes, 44},
};

VariableRow find_row(const std::string &name) {
    for (const VariableRow &row : kVariables) {
        if (name == row.name) return row;
    }
    return {"", Kind::pointer, sizeof(void *)};
}

void *find_address(const std::string &name) {
    void *address = dlsym(RTLD_DEFAULT, name.c_str());
    if (address == nullptr) throw BadRequest{"not exported: " + name};
    return address;
}

// The agent guards these texts with locks of its own that nobody else can take: a torn text is possible, a
// report about it is of no use. `volatile` keeps the loop from becoming a call that is watched.
__attribute__((no_sanitize("thread"))) std::string copy_unguarded(const void *from, size_t size,
                                                                  bool stop_at_nul) {
    const volatile char *at = static_cast<const volatile char *>(from);
    std::string copy(size, '\0');
    char *to = copy.data();
    size_t length = 0;
    while (length < size && !(stop_at_nul && at[length] == '\0')) {
        to[length] = at[length];
        length++;
    }
    copy.resize(length);
    return copy;
}

}  // namespace

json read_variable(const std::string &name) {
    const VariableRow row = find_row(name);
    void *address = find_address(name);
    json value;
    if (row.type == Kind::number) {
        value = __atomic_load_n(static_cast<int *>(address), __ATOMIC_RELAXED);
    } else if (row.type == Kind::text) {
        value = text_value(copy_unguarded(address, row.size, true));
    } else if (row.type == Kind::bytes) {
        const std::string bytes = copy_unguarded(address, row.size, false);
        value = to_hex(bytes.data(), bytes.size());
    } else {
        const char *pointer = __atomic_load_n(static_cast<const char **>(address), __ATOMIC_ACQUIRE);
        value = row.type == Kind::text_pointer ? text_value(pointer) : json(pointer != nullptr);
    }
    return {{"name", name}, {"value", value}};
}

void set_variable(const std::string &name, int value) {
    if (find_row(name).type != Kind::number) throw BadRequest{"not an int: " + name};
    __atomic_store_n(static_cast<int *>(find_address(name)), value, __ATOMIC_SEQ_CST);
}

}  // namespace desk
