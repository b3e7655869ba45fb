// How the agent touches the exported globals that several threads share: they stay plain types for the SDK's
// sake, and every access of ours is atomic.
#ifndef Z55_SHARED_H
#define Z55_SHARED_H

#include <atomic>

template <typename T>
T load_shared(T &global) {
    return std::atomic_ref<T>(global).load();
}

template <typename T>
void store_shared(T &global, T value) {
    std::atomic_ref<T>(global).store(value);
}

#endif
