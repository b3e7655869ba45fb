// Calls of the agent into the system and libcurl that the linker sends here first (--wrap): refused once, so
// that a failure path can be walked, or noted where nothing else shows them. Any thread.
#ifndef UNIT_SUPPORT_INTERCEPT_H
#define UNIT_SUPPORT_INTERCEPT_H

#include <pthread.h>

#include <functional>
#include <string>
#include <vector>

namespace intercept {

// The next call of `function` fails: pthread_attr_init, pthread_attr_setdetachstate, pthread_create (each
// returns EAGAIN), sem_init (-1, errno ENOSPC), sem_wait (-1, errno EINTR), fsync, read, fstat, fchown,
// fchmod
// (-1, errno EIO), close (the same, though it closes), curl_easy_init, malloc, calloc, realloc (null), fread
// (0) or curl_easy_setopt of a text (CURLE_OUT_OF_MEMORY). `after` calls go well before it.
void refuse_next(const std::string &function, int after = 0);

// The next read fails with EINTR.
void interrupt_next_read();

// Whether what refuse_next said has not come about yet.
bool still_refuses(const std::string &function);

// What clock() returns from now on; `clock` is called on the thread that asks.
void set_processor_clock(std::function<long()> clock);
void set_processor_ticks(long ticks);

// The threads that the agent has created with this routine, in order.
std::vector<pthread_t> created(void *(*routine)(void *));

// How often sem_wait was entered: an enqueued job's thread does so once the job is in its queue.
int semaphore_waits();

// The seconds of every connect time-out set on a transfer, in order.
std::vector<long> connect_timeouts();

// The number that a transfer was given last for this libcurl option; -1 when none was.
long transfer_number(int option);

// How many transfers were asked of libcurl.
int transfers();

// The path of every file and folder that fsync wrote back, in order.
std::vector<std::string> synced();

// `hook` is called with the path before each fsync, on its thread.
void on_sync(std::function<void(const std::string &path)> hook);

// How often a wait with a deadline was entered on a condition.
int timed_waits();

// Threads of this routine that are created from now on begin when they are let on.
void hold_threads(void *(*routine)(void *));
void let_threads_on();

// The blocks that malloc, calloc and realloc have given since reset() and that free has not got back, and
// libcurl's handles that nobody has cleaned up.
size_t blocks();

// How often free memory was returned to the system (malloc_trim).
int trims();

// `hook` is called at each alarm(), which may be in a signal handler; null: none.
void on_alarm(void (*hook)(unsigned seconds));

void reset();

}  // namespace intercept

#endif
