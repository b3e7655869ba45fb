#include "wait.h"

#include <chrono>
#include <stdexcept>
#include <thread>

void wait_until(const std::string &what, const std::function<bool()> &condition, double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            throw std::runtime_error("not within " + std::to_string(seconds) + " s: " + what);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}
