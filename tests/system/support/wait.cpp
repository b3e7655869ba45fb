#include "wait.h"

#include <chrono>
#include <stdexcept>
#include <thread>

void wait_until(const std::string &what, const std::function<bool()> &condition, double seconds) {
    using namespace std::chrono_literals;
    const auto start = std::chrono::steady_clock::now();
    while (!condition()) {
        const auto waited = std::chrono::steady_clock::now() - start;
        if (waited > std::chrono::duration<double>(seconds))
            throw std::runtime_error("not within " + std::to_string(seconds) + " s: " + what);
        std::this_thread::sleep_for(waited < 1s ? 2ms : 10ms);
    }
}
