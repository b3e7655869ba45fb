#include "session_key.h"

#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "../exports.h"
#include "../shared.h"
#include "utils/conf_file.h"
#include "utils/text.h"

// The current key, written by the main thread. All accesses hold key_lock.
constinit char session_key_buffer[kSessionKeySize] = {};

// Set by the threads that are started with the hook as their argument; never null.
char *(*get_session_key)(void) = copy_session_key;

namespace {

constinit std::mutex key_lock;
constinit pthread_cond_t key_arrived = PTHREAD_COND_INITIALIZER;
constinit unsigned long keys_stored = 0;  // under key_lock; tells a waiter that a key came since it looked

// What the configuration should hold as SESSION_KEY but could not be made to; under key_lock.
constinit bool key_is_unwritten = false;
constinit char unwritten_key[kSessionKeySize] = {};

constinit std::mutex storing;  // in the configuration; held for the disk

// The key in the buffer, nothing when it is empty.
std::optional<std::string> held_key() {
    char key[kSessionKeySize];
    {
        const std::lock_guard<std::mutex> lock(key_lock);
        copy_text(key, session_key_buffer);
    }
    if (key[0] == '\0') return std::nullopt;
    return key;
}

}  // namespace

void store_session_key(char *out, const std::string &key) {
    const std::lock_guard<std::mutex> lock(key_lock);
    copy_text(out, kSessionKeySize, key);
    keys_stored++;
    pthread_cond_broadcast(&key_arrived);
}

void clear_session_key() {
    const std::lock_guard<std::mutex> lock(key_lock);
    std::memset(session_key_buffer, 0, sizeof session_key_buffer);
}

char *copy_session_key() {
    const std::lock_guard<std::mutex> lock(key_lock);
    if (session_key_buffer[0] == '\0') return nullptr;
    char *copy = static_cast<char *>(std::malloc(kSessionKeySize));
    if (copy == nullptr) {
        std::puts("not enough memory for a session key");
        return nullptr;
    }
    copy_text(copy, kSessionKeySize, session_key_buffer);
    return copy;
}

std::optional<std::string> session_key() {
    const auto hook = load_shared(get_session_key);
    if (hook == copy_session_key) return held_key();  // a copy that there is no memory for is not "no key"
    char *copy = hook();
    if (copy == nullptr) return std::nullopt;
    std::string key = copy;
    std::free(copy);
    return key;
}

std::string wait_for_session_key() {
    for (unsigned long seen = 0;;) {
        {
            const std::lock_guard<std::mutex> lock(key_lock);
            seen = keys_stored;
        }
        if (auto key = session_key()) return *key;
        const std::lock_guard<std::mutex> lock(key_lock);
        while (keys_stored == seen) pthread_cond_wait(&key_arrived, key_lock.native_handle());
    }
}

std::optional<std::string> configured_session_key() {
    {
        const std::lock_guard<std::mutex> lock(key_lock);
        if (key_is_unwritten) return unwritten_key;
    }
    char key[kSessionKeySize];
    if (!conf_value_into(key, "SESSION_KEY")) return std::nullopt;
    return key;
}

std::string session_cookie(const std::string &key) {
    return "Session=" + key;
}

void store_configured_key(std::string_view key) {
    const std::lock_guard<std::mutex> order(storing);
    const bool written = write_conf_value("SESSION_KEY", key) == 0;
    const std::lock_guard<std::mutex> lock(key_lock);
    key_is_unwritten = !written;
    // White space alone is what the file would lose.
    copy_text(unwritten_key, trim_line(key).empty() ? "" : key);
}
