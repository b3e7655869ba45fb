// Starting of detached threads.
#ifndef Z55_AGENT_UTILS_THREADS_H
#define Z55_AGENT_UTILS_THREADS_H

#include <pthread.h>

// Starts `routine` on a detached thread. Returns 0, or -1 after a line on standard error. Any thread.
int start_thread(pthread_t *thread, void *(*routine)(void *), void *argument);

#endif
