// Starting of detached threads. SIGALRM is blocked in each: the tick is the main thread's alone.
#ifndef Z55_AGENT_UTILS_THREADS_H
#define Z55_AGENT_UTILS_THREADS_H

#include <pthread.h>

// Starts `routine` on a detached thread. Returns 0, or -1 after a line on standard error. Any thread.
[[nodiscard]] int start_thread(pthread_t *thread, void *(*routine)(void *), void *argument);

// The same for a thread that the agent cannot do without, of which there are at most four: where it could not
// be started the main thread tries again once a minute. `thread` and `argument` are kept. Main thread.
[[nodiscard]] int start_wanted_thread(pthread_t *thread, void *(*routine)(void *), void *argument);

// Tells that `routine`, of a wanted thread, could not do its work: it will be started again. Any thread.
void want_thread_again(void *(*routine)(void *));

// pause_seconds, which starts missing wanted threads before and, in a long pause, meanwhile. Main thread.
void pause_and_start_missing(long seconds);

#endif
