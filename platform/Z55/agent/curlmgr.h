// The HTTP job queue: a bounded queue of prepared libcurl transfers for each priority, and one worker thread
// that performs them, one at a time, by strict priority. It knows no camera.
#ifndef Z55_AGENT_CURLMGR_H
#define Z55_AGENT_CURLMGR_H

#include <curl/curl.h>
#include <semaphore.h>

#include <cstdint>

enum QueuePriority { kDefaultPriority = 0, kHighPriority = 2 };

// One transfer that waits or is being performed. Lives on the stack of the thread that waits for it.
struct curl_job {
    CURL *handle;
    const char *name;  // for the log
    sem_t done;        // posted once, by the worker
    int result;        // libcurl code
    curl_job *prev, *next;
};

struct curl_queue {
    curl_job *head, *tail;
    std::uint32_t count, capacity;
};

// Transfers since start; they never come round to 0.
struct TransferCounts {
    unsigned long long good, failed;  // 64 bits on every target
};

// The failed ones' share in percent, 0 where there were none at all.
unsigned long long fail_rate(const TransferCounts &counts_now);

inline constexpr std::uint32_t kQueueCapacity = 80;  // jobs waiting, per queue

void curl_queue_init(curl_queue *queue, std::uint32_t capacity);

// Links `job` at the back. Returns 0, or 1 when the queue is full.
[[nodiscard]] int curl_queue_push_back(curl_queue *queue, curl_job *job);

// Unlinks and returns the head, null when the queue is empty.
curl_job *curl_queue_pop(curl_queue *queue);

// Hands `handle` to the worker and blocks, however long the transfer takes, until it is performed. Returns
// the libcurl result, or -1 when the queue of that priority is full, when there is no such priority, or at
// once when the worker could not be created. The handle stays the caller's. `name` may be null. Any thread
// but the worker.
[[nodiscard]] int curlmgr_enqueue_job(CURL *handle, int priority, const char *name);

// The worker's life. Not yet there when the agent starts: requests wait for it. Standing, to the process's
// end. Or missing, because it or its starter could not be created: requests fail, those that wait too, until
// a later try has made it stand.

// Thread routine: creates the worker and returns. The result is 0, or -1 (as a pointer) when it could not be
// created; then the worker is missing, and start_missing_threads will run this routine again.
void *start_curl_thread(void *);

// Tells that start_curl_thread's own thread could not be created. Any thread.
void curl_worker_missing();

// Returns at once unless the worker is missing, then as soon as it stands. Any thread.
void wait_for_curl_worker();

#endif
