// A child process of a test, and what /proc tells of any process.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

// Starts `command` with `environment` added to the test's own and its output in `output` (appended). Throws
// std::runtime_error when it cannot be started.
pid_t start_process(const std::vector<std::string> &command,
                    const std::map<std::string, std::string> &environment, const std::string &output);

// Sends SIGTERM, after ten seconds SIGKILL, and waits for the end. Returns the wait status.
int stop_process(pid_t child);

// Whether the child still runs; one that has ended is not reaped.
bool runs(pid_t child);

int open_descriptors(pid_t process);
int thread_count(pid_t process);

// Writable memory of its own, whether touched or not, in KiB.
long mapped_kib(pid_t process);

// How often `text` stands in `whole`, without overlaps.
int count_of(const std::string &text, const std::string &whole);

// The whole file, "" when there is none.
std::string file_text(const std::string &path);
