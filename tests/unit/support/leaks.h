// What a call leaves behind that it should not.
#ifndef UNIT_SUPPORT_LEAKS_H
#define UNIT_SUPPORT_LEAKS_H

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <iterator>

#include "agent_test.h"
#include "intercept.h"

inline long open_descriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

// `act` takes no block of malloc and no descriptor that it keeps, once it has been done twice: what is kept
// for the next time, or until then, is there by then. What another thread, such as the camera's, is about to
// give back is no leak.
inline void expect_nothing_left(const std::function<void()> &act) {
    constexpr int kTimes = 5;
    for (int i = 0; i < 2; i++) act();
    const size_t blocks = intercept::blocks();
    const long descriptors = open_descriptors();
    for (int i = 0; i < kTimes; i++) act();
    EXPECT_TRUE(eventually([&] { return intercept::blocks() < blocks + kTimes; }))
        << intercept::blocks() << " blocks, before " << blocks;
    EXPECT_TRUE(eventually([&] { return open_descriptors() < descriptors + kTimes; }))
        << open_descriptors() << " descriptors, before " << descriptors;
}

#endif
