// What the agent costs while nothing is asked of it: how often it wakes up, and the memory that a storm of
// callers leaves behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <vector>

#include "desk.h"

namespace fs = std::filesystem;

namespace {

constexpr double kPollSeconds = 10, kRoundSeconds = 5;
constexpr int kPolls = 30;  // five minutes of the agent's, and so many seconds of the machine's
constexpr double kSpeed = 60;

// An emulator and the sanitizers have threads and memory of their own.
bool somebody_else_counts() {
    return sanitized_agent() || std::getenv("VELO_AGENT_LAUNCHER") != nullptr;
}

double number_behind(const std::string &path, const std::string &name) {
    std::ifstream file(path);
    for (std::string word; file >> word;)
        if (word == name && file >> word) return std::stod(word);
    throw std::runtime_error(path + " has no " + name);
}

// --- Wake-ups

// How often each of the agent's threads has waited for something, by its number.
std::map<int, double> waits(pid_t agent) {
    std::map<int, double> counts;
    for (const auto &task : fs::directory_iterator("/proc/" + std::to_string(agent) + "/task"))
        counts[std::stoi(task.path().filename())] =
            number_behind(task.path() / "status", "voluntary_ctxt_switches:");
    return counts;
}

// Of the table in docs/PERFORMANCE.md: thread, event, wake-ups for each.
std::map<std::string, std::map<std::string, double>> listed() {
    std::map<std::string, std::map<std::string, double>> rows;
    std::ifstream file(PERFORMANCE_DOCUMENT);
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("<!-- ")) inside = line == "<!-- wake-ups -->";
        std::vector<std::string> cells;
        std::istringstream row(line);
        for (std::string cell; std::getline(row, cell, '|');)
            cells.push_back(cell.size() > 2 ? cell.substr(1, cell.size() - 2) : "");
        if (inside && cells.size() > 3 && std::atoi(cells[1].c_str()) > 0)
            rows[cells[3]][cells[2]] += std::stod(cells[1]);
    }
    return rows;
}

// What the list grants a thread in so many seconds, and room for a lock that another one holds now and then.
double granted(const std::map<std::string, double> &rows, double seconds) {
    const std::map<std::string, double> period = {
        {"second", 1}, {"poll", kPollSeconds}, {"request", kPollSeconds}, {"round", kRoundSeconds}};
    double sum = 0;
    for (const auto &[event, number] : rows) sum += number * (seconds / period.at(event) + 1);
    return sum * 1.01 + 2;
}

}  // namespace

TEST(Rest, WakesUpForThePeriodsThatAreListedAndForNothingElse) {
    if (somebody_else_counts()) GTEST_SKIP();
    DeskOptions options;
    options.speed = options.least_speed = kSpeed;
    options.conf = {{"POLL_STATUS_PERIOD_SEC", "10"}, {"SDCARD_ARMED", "0"}};  // no command is run
    Desk desk(options);
    desk.wait_for_cycles(1);  // the start is over
    const auto wait_for_polls = [&](int count) {
        wait_until("the next polls", [&] { return desk.count_in_log("finish sleeping. ***\n") >= count; });
    };
    const int polled = desk.count_in_log("finish sleeping. ***\n");
    const auto start = std::chrono::steady_clock::now();
    const auto before = waits(desk.agent_pid());
    wait_for_polls(polled + kPolls);
    auto woken = waits(desk.agent_pid());
    const std::chrono::duration<double> real = std::chrono::steady_clock::now() - start;
    const double seconds = real.count() * desk.speed();
    for (auto &[thread, count] : woken) count -= before.at(thread);

    // The threads start in this order; the queue's worker is the one of the others that works.
    const auto main = woken.begin(), cloud = std::next(main);
    std::vector<double> others;
    for (auto other = std::next(cloud); other != woken.end(); ++other) others.push_back(other->second);
    std::sort(others.rbegin(), others.rend());
    const auto rows = listed();
    std::cout << seconds << " s: main " << main->second << " of " << granted(rows.at("main"), seconds)
              << ", cloud session " << cloud->second << " of " << granted(rows.at("cloud session"), seconds)
              << ", worker " << others.at(0) << " of " << granted(rows.at("worker"), seconds) << "\n";
    EXPECT_LE(main->second, granted(rows.at("main"), seconds));
    EXPECT_LE(cloud->second, granted(rows.at("cloud session"), seconds));
    EXPECT_LE(others.at(0), granted(rows.at("worker"), seconds));
    EXPECT_LE(others.at(1), 1) << "of all other threads";
    EXPECT_GE(main->second, 2 * (kPolls - 1)) << "the pause and the answer";
    EXPECT_GE(others.at(0), kPolls - 1);
    EXPECT_GE(cloud->second, 1);
}

// --- Memory

namespace {

// Pages that the agent has written, in KiB. Pages of libraries that nobody else happens to map are not its
// own.
double written_kib(pid_t agent) {
    return number_behind("/proc/" + std::to_string(agent) + "/smaps_rollup", "Private_Dirty:");
}

}  // namespace

TEST(Rest, AStormOfSeventyNineThreadsLeavesHalfAMebibyteAtMost) {
    if (somebody_else_counts()) GTEST_SKIP();
    DeskOptions options;
    options.environment = {{"GLIBC_TUNABLES", "glibc.malloc.tcache_count=7"}};  // memory as on a device
    Desk desk(options);
    desk.wait_for_cycles(2);
    const double before = written_kib(desk.agent_pid());
    desk.sdk("POST", "/call",
             {{"name", "get_device_param"}, {"args", {"md_armed"}}, {"threads", 79}, {"repeat", 3}});
    const double storm = written_kib(desk.agent_pid());
    desk.wait_for_cycles(14);  // polls are 5 s apart; memory is given back once a minute
    const double after = written_kib(desk.agent_pid());
    std::cout << before << " KiB at rest, " << storm << " in a storm, " << after << " behind it\n";
    EXPECT_LE(after, before + 512);
}
