// What becomes of memory that is short, and of memory that many threads have used. Each test changes a
// process of its own.
#include "agent/utils/memory.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <barrier>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kOwnAllocator = false;  // the sanitizer's is in the place of the C library's
#else
constexpr bool kOwnAllocator = true;
#endif

// The wait status of a process that runs `body`, whose standard error becomes `errors`.
int status_of(const std::function<int()> &body, std::string &errors) {
    int ends[2];
    if (pipe(ends) != 0) return -1;
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDERR_FILENO);
        _exit(body());
    }
    close(ends[1]);
    char piece[256];
    for (ssize_t count; (count = read(ends[0], piece, sizeof piece)) > 0;) {
        errors.append(piece, static_cast<size_t>(count));
    }
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST(Memory, AnAllocationThatFailsEndsTheProcessWithOneLine) {
    if (!kOwnAllocator) GTEST_SKIP();
    std::string errors;
    const int status = status_of(
        [] {
            prepare_memory();
            volatile size_t much = SIZE_MAX / 2 + 1;
            void *volatile block = operator new(much);
            return block != nullptr ? 0 : 2;
        },
        errors);
    EXPECT_EQ(status, 1 << 8);
    EXPECT_EQ(errors, "VeloAgent: out of memory\n");
}

// Whoever comes second waits for the end that the first has brought about.
TEST(Memory, ThreadsThatFailAtTheSameInstantWriteOneLine) {
    if (!kOwnAllocator) GTEST_SKIP();
    for (int round = 0; round < 50; round++) {
        std::string errors;
        const int status = status_of(
            [] {
                prepare_memory();
                constexpr int kThreads = 4;
                std::barrier together(kThreads);
                std::vector<std::thread> threads;
                for (int i = 0; i < kThreads; i++) {
                    threads.emplace_back([&together] {
                        volatile size_t much = SIZE_MAX / 2 + 1;
                        together.arrive_and_wait();
                        void *volatile block = operator new(much);
                        (void)block;
                    });
                }
                for (std::thread &thread : threads) thread.join();
                return 2;
            },
            errors);
        ASSERT_EQ(status, 1 << 8);
        ASSERT_EQ(errors, "VeloAgent: out of memory\n") << "in round " << round;
    }
}

TEST(Memory, MallocStillFailsToItsCaller) {
    if (!kOwnAllocator) GTEST_SKIP();
    std::string errors;
    EXPECT_EQ(status_of(
                  [] {
                      prepare_memory();
                      volatile size_t much = SIZE_MAX / 2 + 1;
                      void *volatile block = std::malloc(much);
                      return block == nullptr ? 0 : 2;
                  },
                  errors),
              0);
    EXPECT_EQ(errors, "");
}

#ifdef M_ARENA_MAX
int arenas() {
    char *text = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    malloc_info(0, stream);
    std::fclose(stream);
    int count = 0;
    const std::string list(text, size);
    for (size_t at = 0; (at = list.find("<heap nr=", at)) != std::string::npos; at++) count++;
    std::free(text);
    return count;
}

TEST(Memory, ManyThreadsShareOneArena) {
    if (!kOwnAllocator) GTEST_SKIP();
    std::string errors;
    const int status = status_of(
        [] {
            prepare_memory();
            constexpr int kThreads = 8;
            std::barrier together(kThreads);
            std::vector<std::thread> threads;
            for (int i = 0; i < kThreads; i++) {
                threads.emplace_back([&together] {
                    std::vector<std::string> blocks(100, std::string(200, 'x'));
                    together.arrive_and_wait();
                });
            }
            for (std::thread &thread : threads) thread.join();
            return arenas();
        },
        errors);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
}
#endif

#ifdef __GLIBC__
long resident_kib() {
    long size = 0, resident = 0;
    FILE *file = std::fopen("/proc/self/statm", "r");
    if (file == nullptr || std::fscanf(file, "%ld %ld", &size, &resident) != 2) resident = -1;
    if (file != nullptr) std::fclose(file);
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// The library by itself gives back only what lies behind the last living block.
TEST(Memory, PagesThatWereFreedBetweenOthersAreGivenBack) {
    if (!kOwnAllocator) GTEST_SKIP();
    std::string errors;
    const int status = status_of(
        [] {
            prepare_memory();
            constexpr size_t kBlock = 64 * 1024, kBlocks = 64;
            std::vector<std::string> living(kBlocks);
            std::vector<std::string> freed(kBlocks);
            for (size_t i = 0; i < kBlocks; i++) {
                freed[i].assign(kBlock, 'x');
                living[i].assign(100, 'y');
            }
            freed.clear();
            const long before = resident_kib();
            return_free_memory();
            const bool kept = living.back() == std::string(100, 'y');
            return kept && resident_kib() < before - 2048 ? 0 : 1;
        },
        errors);
    EXPECT_EQ(status, 0) << errors;
}
#endif

}  // namespace
