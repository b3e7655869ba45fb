#include "task_timer.h"

#include <utility>

using steady = std::chrono::steady_clock;

task_timer::task_timer(double speed) : speed_(speed), thread_([this] { run(); }) {}

task_timer::~task_timer() {
    stop();
}

void task_timer::stop() {
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void task_timer::after_ms(double ms, std::function<void()> task) {
    const auto delay =
        std::chrono::duration_cast<steady::duration>(std::chrono::duration<double, std::milli>(ms / speed_));
    std::lock_guard guard(lock_);
    tasks_.emplace(steady::now() + delay, std::move(task));
    changed_.notify_one();
}

void task_timer::run() {
    std::unique_lock guard(lock_);
    while (!stopping_) {
        if (tasks_.empty()) {
            changed_.wait(guard);
        } else if (const auto due = tasks_.begin()->first; steady::now() < due) {
            changed_.wait_until(guard, due);
        } else {
            auto task = std::move(tasks_.extract(tasks_.begin()).mapped());
            guard.unlock();
            task();
            guard.lock();
        }
    }
}
