#include "task_timer.h"

#include <utility>

using Steady = std::chrono::steady_clock;

TaskTimer::TaskTimer(double speed) : speed_(speed), thread_([this] { run(); }) {}

TaskTimer::~TaskTimer() {
    stop();
}

void TaskTimer::stop() {
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) thread_.join();
}

void TaskTimer::after_ms(double ms, std::function<void()> task) {
    const auto delay =
        std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double, std::milli>(ms / speed_));
    std::lock_guard guard(lock_);
    tasks_.emplace(Steady::now() + delay, std::move(task));
    changed_.notify_one();
}

void TaskTimer::run() {
    std::unique_lock guard(lock_);
    while (!stopping_) {
        if (tasks_.empty()) {
            changed_.wait(guard);
        } else if (const auto due = tasks_.begin()->first; Steady::now() < due) {
            changed_.wait_until(guard, due);
        } else {
            auto task = std::move(tasks_.extract(tasks_.begin()).mapped());
            guard.unlock();
            task();
            guard.lock();
        }
    }
}
