// Runs things later, on one thread of its own: the camera's walks (upgrade, growing recordings, photos).
// Delays are divided by the camera's speed. Any thread may order a task; a task may order the next one.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

class TaskTimer {
  public:
    // speed > 0: how much faster than the clock the tasks come due.
    explicit TaskTimer(double speed);
    ~TaskTimer();
    TaskTimer(const TaskTimer &) = delete;
    TaskTimer &operator=(const TaskTimer &) = delete;

    // Runs the task on the timer's thread after `ms` milliseconds divided by the speed. Does not block.
    void after_ms(double ms, std::function<void()> task);

    // Forgets the tasks that are not due, waits for the one that runs, and takes no more. Once is enough; not
    // from a task.
    void stop();

  private:
    void run();

    const double speed_;
    std::mutex lock_;
    std::condition_variable changed_;
    std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> tasks_;
    bool stopping_ = false;
    std::thread thread_;
};
