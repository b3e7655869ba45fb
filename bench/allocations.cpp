// A preload that counts the calls of the allocating functions, of all threads.
#include <cstddef>

#include <atomic>

extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);

namespace {
constinit std::atomic<long> allocations{0};
}

void *malloc(std::size_t size) {
    allocations++;
    return __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) {
    allocations++;
    return __libc_calloc(count, size);
}

void *realloc(void *block, std::size_t size) {
    allocations++;
    return __libc_realloc(block, size);
}

int posix_memalign(void **block, std::size_t alignment, std::size_t size) {
    allocations++;
    *block = __libc_memalign(alignment, size);
    return *block != nullptr ? 0 : 12;  // ENOMEM
}

long bench_allocations() {
    return allocations;
}

}  // extern "C"
