#include "curlmgr.h"

#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "../exports.h"
#include "../log_sources.h"
#include "utils/os.h"
#include "utils/text.h"
#include "utils/threads.h"

namespace {

constexpr long kConnectTimeoutSeconds = 2;
// Requests start at most this far into a second, or back to back.
constexpr long kPacingNanoseconds = 100'000'000;

// Guards all of this but the semaphore's waits; held for list operations only.
constinit std::mutex queue_lock;
struct Lane {
    int priority;
    const char *name;  // in the log: "high size: %d"
    curl_queue queue;
};
constinit Lane lanes[] = {
    // the worker looks into them in this order
    {kHighPriority, "high", {}},
    {kDefaultPriority, "default", {}},
};

constinit sem_t curl_sem{};           // the idle worker sleeps on it; at most one wake-up is pending
constinit int curl_sem_error = 0;     // errno of its initialisation
constinit pthread_t worker_thread{};  // written once, by the starter thread

enum class Worker { not_yet, standing, missing };
constinit Worker worker = Worker::not_yet;
constinit pthread_cond_t worker_stands = PTHREAD_COND_INITIALIZER;

constinit TransferCounts counts{0, 0};  // for the log

constexpr int kNotPerformed = -1;  // no libcurl code

void wait_resuming(sem_t *semaphore) {
    while (sem_wait(semaphore) != 0 && errno == EINTR) {
    }
}

// Whoever comes first prepares queues and semaphore: a wake-up must never be erased by a later
// initialisation.
void init_once() {
    static std::once_flag once;
    std::call_once(once, [] {
        for (Lane &lane : lanes) curl_queue_init(&lane.queue, kQueueCapacity);
        if (sem_init(&curl_sem, 0, 0) != 0) curl_sem_error = errno;
    });
}

curl_queue *queue_of(int priority) {
    for (Lane &lane : lanes) {
        if (lane.priority == priority) return &lane.queue;
    }
    return nullptr;
}

enum class Pushed { done, full, no_worker };

Pushed push_and_wake(curl_queue *queue, curl_job *job) {
    const std::lock_guard<std::mutex> lock(queue_lock);
    if (worker == Worker::missing) return Pushed::no_worker;
    if (curl_queue_push_back(queue, job) != 0) return Pushed::full;
    int value = 0;
    if (sem_getvalue(&curl_sem, &value) == 0 && value == 0) sem_post(&curl_sem);
    return Pushed::done;
}

// The lock is held.
void fail_waiting_jobs() {
    for (Lane &lane : lanes) {
        while (curl_job *job = curl_queue_pop(&lane.queue)) {
            job->result = kNotPerformed;
            sem_post(&job->done);
        }
    }
}

// The job's result; kNotPerformed where the worker is missing.
int wait_for_result(curl_job &job) {
    wait_resuming(&job.done);
    sem_destroy(&job.done);
    return job.result;
}

std::uint32_t waiting_in(const curl_queue &queue) {
    const std::lock_guard<std::mutex> lock(queue_lock);
    return queue.count;
}

curl_job *pop_from(curl_queue &queue) {
    std::unique_lock<std::mutex> lock(queue_lock);
    curl_job *job = curl_queue_pop(&queue);
    lock.unlock();
    if (job == nullptr) std::puts("curl_queue_pop: EMPTY");
    return job;
}

// The next job by strict priority, null when all queues are empty.
curl_job *next_job() {
    for (Lane &lane : lanes) {
        if (const std::uint32_t size = waiting_in(lane.queue)) {
            std::printf("%s size: %d\n", lane.name, static_cast<int>(size));
            return pop_from(lane.queue);
        }
    }
    return nullptr;
}

void log_result(int result) {
    std::unique_lock<std::mutex> lock(queue_lock);
    (result != 0 ? counts.failed : counts.good)++;
    const TransferCounts now = counts;
    lock.unlock();
    std::printf("curlmgr_enqueue_job OK. res = %d, good=%llu NG=%llu fail_rate = %llu\n ", result, now.good,
                now.failed, fail_rate(now));
}

}  // namespace

unsigned long long fail_rate(const TransferCounts &counts_now) {
    return counts_now.failed == 0 ? 0 : counts_now.failed * 100 / (counts_now.good + counts_now.failed);
}

void curl_queue_init(curl_queue *queue, std::uint32_t capacity) {
    *queue = curl_queue{nullptr, nullptr, 0, capacity};
}

int curl_queue_push_back(curl_queue *queue, curl_job *job) {
    if (queue->count == queue->capacity) return 1;
    job->prev = queue->tail;
    job->next = nullptr;
    (queue->tail != nullptr ? queue->tail->next : queue->head) = job;
    queue->tail = job;
    queue->count++;
    return 0;
}

curl_job *curl_queue_pop(curl_queue *queue) {
    if (queue->count == 0) return nullptr;
    curl_job *job = queue->head;
    queue->head = job->next;
    (queue->head != nullptr ? queue->head->prev : queue->tail) = nullptr;
    queue->count--;
    return job;
}

int curlmgr_enqueue_job(CURL *handle, int priority, const char *name) {
    init_once();
    std::puts("curlmgr_perform_curl called");
    curl_queue *queue = queue_of(priority);
    if (queue == nullptr) return -1;
    curl_job job{};
    job.handle = handle;
    job.name = text_or_empty(name);
    sem_init(&job.done, 0, 0);
    const Pushed pushed = push_and_wake(queue, &job);
    if (pushed == Pushed::full) {
        std::puts("curl_queue_push_back: FULL");
        std::puts("curlmgr_enqueue_job failed. The queue is full. res = -1.");
        return -1;
    }
    if (pushed == Pushed::no_worker || wait_for_result(job) == kNotPerformed) {
        std::puts("curlmgr_enqueue_job failed. There is no worker. res = -1.");
        return -1;
    }
    log_result(job.result);
    return job.result;
}

void *perform_curls_in_queue(void *) {
    init_once();
    for (;;) {
        curl_job *job = next_job();
        if (job == nullptr) {
            wait_resuming(&curl_sem);
            continue;
        }
        std::printf("curlmgr: performing curl, name = %s... \n", job->name);
        curl_easy_setopt(job->handle, CURLOPT_CONNECTTIMEOUT, kConnectTimeoutSeconds);
        job->result = curl_easy_perform(job->handle);
        sem_post(&job->done);
        pause_within_second(kPacingNanoseconds);
    }
}

void *start_curl_thread(void *) {
    init_once();
    std::printf("Start Curl Performing Thread.\n");
    if (pthread_create(&worker_thread, &thread_attr, perform_curls_in_queue, nullptr) != 0) {
        std::printf("!!!***%s %d***!!!\n", kQueueSource, 203);
        std::puts("*** error in create curl_thread ***");
        want_thread_again(start_curl_thread);
        curl_worker_missing();
        return reinterpret_cast<void *>(-1);
    }
    {
        const std::lock_guard<std::mutex> lock(queue_lock);
        worker = Worker::standing;
        pthread_cond_broadcast(&worker_stands);
    }
    if (curl_sem_error != 0) std::printf("init curl_sem error:%s\n", std::strerror(curl_sem_error));
    return nullptr;
}

void curl_worker_missing() {
    const std::lock_guard<std::mutex> lock(queue_lock);
    worker = Worker::missing;
    fail_waiting_jobs();
}

void wait_for_curl_worker() {
    const std::lock_guard<std::mutex> lock(queue_lock);
    while (worker == Worker::missing) pthread_cond_wait(&worker_stands, queue_lock.native_handle());
}
