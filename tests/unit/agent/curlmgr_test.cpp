#include "agent/curlmgr.h"

#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "agent/utils/threads.h"
#include "agent/utils/transfer.h"
#include "agent_test.h"
#include "exports.h"
#include "intercept.h"
#include "row_names.h"

namespace {

// --- The list operations.

std::vector<curl_job *> forward(const curl_queue &queue) {
    std::vector<curl_job *> jobs;
    for (curl_job *job = queue.head; job != nullptr; job = job->next) jobs.push_back(job);
    return jobs;
}

std::vector<curl_job *> backward(const curl_queue &queue) {
    std::vector<curl_job *> jobs;
    for (curl_job *job = queue.tail; job != nullptr; job = job->prev) jobs.push_back(job);
    return jobs;
}

TEST(CurlQueue, StartsEmpty) {
    curl_job job{};
    curl_queue queue{&job, &job, 7, 7};
    curl_queue_init(&queue, 5);
    EXPECT_EQ(queue.head, nullptr);
    EXPECT_EQ(queue.tail, nullptr);
    EXPECT_EQ(queue.count, 0u);
    EXPECT_EQ(queue.capacity, 5u);
}

TEST(CurlQueue, IsFirstInFirstOut) {
    curl_queue queue;
    curl_queue_init(&queue, 3);
    curl_job a{}, b{}, c{};
    a.prev = a.next = &c;  // what a link held before does not matter
    for (curl_job *job : {&a, &b, &c}) EXPECT_EQ(curl_queue_push_back(&queue, job), 0);
    EXPECT_EQ(forward(queue), (std::vector{&a, &b, &c}));
    EXPECT_EQ(backward(queue), (std::vector{&c, &b, &a}));
    EXPECT_EQ(queue.count, 3u);
    EXPECT_EQ(curl_queue_pop(&queue), &a);
    EXPECT_EQ(forward(queue), (std::vector{&b, &c}));
    EXPECT_EQ(backward(queue), (std::vector{&c, &b}));
    EXPECT_EQ(curl_queue_pop(&queue), &b);
    EXPECT_EQ(curl_queue_pop(&queue), &c);
    EXPECT_EQ(queue.head, nullptr);
    EXPECT_EQ(queue.tail, nullptr);
    EXPECT_EQ(queue.count, 0u);
    EXPECT_EQ(curl_queue_push_back(&queue, &a), 0);
    EXPECT_EQ(forward(queue), (std::vector{&a}));
    EXPECT_EQ(backward(queue), (std::vector{&a}));
}

TEST(CurlQueue, AFullQueueRefuses) {
    curl_queue queue;
    curl_queue_init(&queue, 2);
    curl_job a{}, b{}, c{};
    EXPECT_EQ(curl_queue_push_back(&queue, &a), 0);
    EXPECT_EQ(curl_queue_push_back(&queue, &b), 0);
    EXPECT_EQ(curl_queue_push_back(&queue, &c), 1);
    EXPECT_EQ(forward(queue), (std::vector{&a, &b}));
    EXPECT_EQ(queue.count, 2u);
}

TEST(CurlQueue, AnEmptyQueueGivesNothing) {
    curl_queue queue;
    curl_queue_init(&queue, 2);
    EXPECT_EQ(curl_queue_pop(&queue), nullptr);
    EXPECT_EQ(queue.count, 0u);
}

// --- The statistics: a device that runs for years counts beyond what a long holds on the target.

struct CountsRow {
    const char *name;
    TransferCounts counts;
    unsigned long long rate;
};

class Counts : public testing::TestWithParam<CountsRow> {};

TEST_P(Counts, HaveARate) {
    EXPECT_EQ(fail_rate(GetParam().counts), GetParam().rate);
}

INSTANTIATE_TEST_SUITE_P(
    Row, Counts,
    testing::Values(CountsRow{.name = "None", .counts = {0, 0}, .rate = 0},
                    CountsRow{.name = "OnlyGood", .counts = {7, 0}, .rate = 0},
                    CountsRow{.name = "OnlyFailed", .counts = {0, 7}, .rate = 100},
                    CountsRow{.name = "OneOfFour", .counts = {3, 1}, .rate = 25},
                    CountsRow{.name = "SumBeyond32Bits", .counts = {0xFFFFFFFF, 1}, .rate = 0},
                    CountsRow{
                        .name = "HundredfoldBeyond32Bits", .counts = {0x10000000, 0x30000000}, .rate = 75},
                    CountsRow{.name = "BothBeyond32Bits", .counts = {0x100000000, 0x300000000}, .rate = 75}),
    by_name);

// --- The starter, and what only a fresh process shows. Run together, these come first of all that use the
// queue.

class QueueStart : public AgentTest {
  protected:
    void SetUp() override {
        AgentTest::SetUp();
        if (queue_worker_runs) GTEST_SKIP() << "the queue is in use already";
    }
    // The starter's log where the worker cannot be created.
    static std::string log_of_failed_start() {
        intercept::refuse_next("pthread_create");
        return output_of([] { EXPECT_EQ(start_curl_thread(nullptr), reinterpret_cast<void *>(-1)); });
    }
    static int ask() {
        const Transfer transfer = new_transfer({std::string("http://") + FakeCamera::kHost + "/x"});
        return curlmgr_enqueue_job(transfer.get(), kDefaultPriority, "job");
    }
    FakeCamera camera;
};

TEST_F(QueueStart, ASemaphoreThatCannotBePreparedIsOnlyReported) {
    intercept::refuse_next("sem_init");
    EXPECT_EQ(start_queue_worker(),
              "Start Curl Performing Thread.\ninit curl_sem error:No space left on device\n");
}

TEST_F(QueueStart, IsLogged) {
    EXPECT_EQ(start_queue_worker(), "Start Curl Performing Thread.\n");
}

TEST_F(QueueStart, WithoutAWorkerIsAFailureAndRequestsFailAtOnceUntilOneStands) {
    EXPECT_EQ(log_of_failed_start(),
              "Start Curl Performing Thread.\n"
              "!!!***platform/Z55/agent/curlmgr 203***!!!\n"
              "*** error in create curl_thread ***\n");
    EXPECT_EQ(output_of([] { EXPECT_EQ(ask(), -1); }),
              "curlmgr_perform_curl called\n"
              "curlmgr_enqueue_job failed. There is no worker. res = -1.\n");
    start_queue_worker();
    output_of([] { EXPECT_EQ(ask(), 0); });
    EXPECT_EQ(camera.seen(), (Texts{"GET /x -"}));
}

TEST_F(QueueStart, WithoutAStarterTheRequestsThatWaitForAWorkerFailToo) {
    std::atomic<int> failed{0};
    const std::string log = output_of([&] {
        std::vector<std::thread> callers;
        for (int i = 0; i < 3; i++) callers.emplace_back([&] { failed += ask() == -1 ? 1 : 0; });
        EXPECT_TRUE(eventually([] { return intercept::semaphore_waits() == 3; }));
        EXPECT_EQ(failed, 0);
        curl_worker_missing();
        for (std::thread &caller : callers) caller.join();
    });
    EXPECT_EQ(failed, 3);
    EXPECT_TRUE(log.ends_with("curlmgr_enqueue_job failed. There is no worker. res = -1.\n")) << log;
    EXPECT_EQ(camera.seen(), (Texts{}));
    start_queue_worker();
    output_of([] { EXPECT_EQ(ask(), 0); });
}

TEST_F(QueueStart, AMissingWorkerIsTriedAgainAfterAMinute) {
    static pthread_t starter{};
    queue_worker_runs = true;
    intercept::refuse_next("pthread_create", 1);  // the starter's goes well, the worker's does not
    output_of([] {
        EXPECT_EQ(start_wanted_thread(&starter, start_curl_thread, nullptr), 0);
        EXPECT_EQ(ask(), -1);
        pause_and_start_missing(59);
        pause_and_start_missing(5);
        EXPECT_EQ(ask(), -1);
        pause_and_start_missing(5);
        wait_for_curl_worker();
        EXPECT_EQ(ask(), 0);
    });
    EXPECT_EQ(fake_os::pauses(), (Texts{"59 s", "5 s", "5 s"}));
    EXPECT_EQ(camera.seen(), (Texts{"GET /x -"}));
}

// --- Jobs. The camera's requests are the order of the transfers.

class Jobs : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        camera.on_request([this](const CameraRequest &request) {
            if (request.target == "/gate") hold();
            return CameraReply{.body = request.target, .hang_up = request.target == "/bad"};
        });
    }
    // One job: the camera is asked for `path` and sends it back. Returns the result.
    static int perform(const std::string &path, int priority, const char *name = "job") {
        std::string body;
        const Transfer transfer = new_transfer({std::string("http://") + FakeCamera::kHost + path});
        curl_easy_setopt(transfer.get(), CURLOPT_WRITEDATA, &body);
        curl_easy_setopt(transfer.get(), CURLOPT_WRITEFUNCTION, keep);
        const int result = curlmgr_enqueue_job(transfer.get(), priority, name);
        if (result == 0) {
            EXPECT_EQ(body, path) << "each caller gets its own answer";
        }
        return result;
    }
    // Jobs of their own threads, queued when this returns.
    void start(const std::string &path, int priority, int count = 1) {
        const int before = intercept::semaphore_waits();
        for (int i = 0; i < count; i++) {
            threads_.emplace_back([=, this] { succeeded += perform(path, priority) == 0 ? 1 : 0; });
        }
        ASSERT_TRUE(eventually([=] { return intercept::semaphore_waits() >= before + count; }));
    }
    // Keeps the worker busy at the camera until open_gate.
    void close_gate() {
        start("/gate", kDefaultPriority);
        ASSERT_TRUE(eventually([this] { return !camera.requests().empty(); }));
    }
    // Lets the worker go on and waits for all jobs that were started.
    void open_gate() {
        {
            const std::lock_guard<std::mutex> lock(gate_lock_);
            open_ = true;
            gate_.notify_all();
        }
        for (std::thread &thread : threads_) thread.join();
        threads_.clear();
    }
    Texts paths() const {
        Texts texts;
        for (const CameraRequest &request : camera.requests()) texts.push_back(request.target);
        return texts;
    }
    std::atomic<int> succeeded{0};  // of the jobs that were started

  private:
    static size_t keep(char *piece, size_t size, size_t count, std::string *body) {
        body->append(piece, size * count);
        return size * count;
    }
    void hold() {
        std::unique_lock<std::mutex> lock(gate_lock_);
        gate_.wait(lock, [this] { return open_; });
    }
    std::mutex gate_lock_;
    std::condition_variable gate_;
    bool open_ = false;
    std::vector<std::thread> threads_;
};

TEST_F(Jobs, OneFailedAndThreeGoodTransfers) {
    if (begun > 1) GTEST_SKIP() << "the counters do not begin at 0";
    const std::string log = output_of([] {
        EXPECT_EQ(perform("/a", kDefaultPriority, "first"), 0);
        EXPECT_EQ(perform("/b", kHighPriority, nullptr), 0);
        EXPECT_EQ(perform("/bad", kDefaultPriority, "bad"), CURLE_GOT_NOTHING);
        EXPECT_EQ(perform("/c", kDefaultPriority, ""), 0);
    });
    EXPECT_EQ(log,
              "curlmgr_perform_curl called\n"
              "default size: 1\n"
              "curlmgr: performing curl, name = first... \n"
              "curlmgr_enqueue_job OK. res = 0, good=1 NG=0 fail_rate = 0\n "
              "curlmgr_perform_curl called\n"
              "high size: 1\n"
              "curlmgr: performing curl, name = ... \n"
              "curlmgr_enqueue_job OK. res = 0, good=2 NG=0 fail_rate = 0\n "
              "curlmgr_perform_curl called\n"
              "default size: 1\n"
              "curlmgr: performing curl, name = bad... \n"
              "curlmgr_enqueue_job OK. res = 52, good=2 NG=1 fail_rate = 33\n "
              "curlmgr_perform_curl called\n"
              "default size: 1\n"
              "curlmgr: performing curl, name = ... \n"
              "curlmgr_enqueue_job OK. res = 0, good=3 NG=1 fail_rate = 25\n ");
}

TEST_F(Jobs, OneFailedTransferIsAFailRateOf100) {
    if (begun > 1) GTEST_SKIP() << "the counters do not begin at 0";
    const std::string log = output_of([] { perform("/bad", kHighPriority); });
    EXPECT_NE(log.find("OK. res = 52, good=0 NG=1 fail_rate = 100\n "), std::string::npos) << log;
}

TEST_F(Jobs, HighPriorityGoesBeforeTheNextDefaultJob) {
    const std::string log = output_of([this] {
        close_gate();
        start("/default1", kDefaultPriority);
        start("/high1", kHighPriority);
        start("/default2", kDefaultPriority);
        start("/high2", kHighPriority);
        open_gate();
    });
    EXPECT_EQ(paths(), (Texts{"/gate", "/high1", "/high2", "/default1", "/default2"}));
    EXPECT_EQ(succeeded, 5);
    Texts sizes;
    for (const char *size : {"high size: 2\n", "high size: 1\n", "default size: 2\n", "default size: 1\n"}) {
        if (log.find(size) != std::string::npos) sizes.push_back(size);
    }
    EXPECT_EQ(sizes.size(), 4u) << log;
}

struct QueueRow {
    const char *name;
    int priority;
};

class FullQueue : public Jobs, public testing::WithParamInterface<QueueRow> {};

TEST_P(FullQueue, RefusesThe81stJobWhileTheOtherAcceptsJobs) {
    const int priority = GetParam().priority;
    const int other = priority == kHighPriority ? kDefaultPriority : kHighPriority;
    std::string log;
    output_of([&] {
        close_gate();
        start("/x", priority, 80);
    });
    log = output_of([&] { EXPECT_EQ(perform("/refused", priority), -1); });
    output_of([&] {
        start("/other", other);
        open_gate();
    });
    EXPECT_EQ(log,
              "curlmgr_perform_curl called\n"
              "curl_queue_push_back: FULL\n"
              "curlmgr_enqueue_job failed. The queue is full. res = -1.\n");
    EXPECT_EQ(succeeded, 82);
    EXPECT_EQ(camera.requests().size(), 82u);
}

INSTANTIATE_TEST_SUITE_P(Priority, FullQueue,
                         testing::Values(QueueRow{.name = "High", .priority = kHighPriority},
                                         QueueRow{.name = "Default", .priority = kDefaultPriority}),
                         by_name);

TEST_F(Jobs, OtherPrioritiesAreRejected) {
    for (const int priority : {1, 3, -1}) {
        EXPECT_EQ(output_of([=] { EXPECT_EQ(perform("/x", priority), -1); }),
                  "curlmgr_perform_curl called\n");
    }
    EXPECT_EQ(camera.requests().size(), 0u);
}

TEST_F(Jobs, AreConnectedWithin2SecondsAndSpacedWithinTheSecond) {
    output_of([] {
        perform("/a", kDefaultPriority);
        perform("/b", kHighPriority);
    });
    EXPECT_EQ(intercept::connect_timeouts(), (std::vector<long>{2, 2}));
    EXPECT_TRUE(eventually([] { return fake_os::worker_pauses() == std::vector<long>(2, 100'000'000); }));
}

TEST_F(Jobs, AnInterruptedWaitIsResumed) {
    output_of([] {
        intercept::refuse_next("sem_wait");
        EXPECT_EQ(perform("/a", kDefaultPriority), 0);
        intercept::refuse_next("sem_wait");
        EXPECT_EQ(perform("/b", kDefaultPriority), 0);
    });
    EXPECT_EQ(paths(), (Texts{"/a", "/b"}));
}

TEST_F(Jobs, ADoneWorkerSleeps) {
    output_of([] {
        const int before = intercept::semaphore_waits();
        EXPECT_EQ(perform("/a", kDefaultPriority), 0);
        EXPECT_TRUE(eventually([before] { return intercept::semaphore_waits() >= before + 2; }));
    });
}

TEST_F(Jobs, OfSixteenThreadsAreNeverTwoAtOnce) {
    constexpr int kThreads = 16, kEach = 10;
    camera.on_request([](const CameraRequest &request) {
        usleep(300);  // long enough for another worker to be seen
        return CameraReply{.body = request.target};
    });
    output_of([] {
        std::vector<std::thread> callers;
        for (int i = 0; i < kThreads; i++) {
            callers.emplace_back([i] {
                for (int j = 0; j < kEach; j++) {
                    const std::string path = "/" + std::to_string(i) + "/" + std::to_string(j);
                    EXPECT_EQ(perform(path, i % 2 == 0 ? kDefaultPriority : kHighPriority), 0);
                }
            });
        }
        for (std::thread &caller : callers) caller.join();
    });
    EXPECT_EQ(static_cast<int>(camera.requests().size()), kThreads * kEach);
    EXPECT_EQ(camera.most_at_once(), 1);
}

TEST_F(Jobs, TheWorkerHasTheSdksAttributes) {
    std::atomic<size_t> stack{0};
    const Transfer transfer = new_transfer({std::string("http://") + FakeCamera::kHost + "/x"});
    curl_easy_setopt(transfer.get(), CURLOPT_WRITEDATA, &stack);
    curl_easy_setopt(
        transfer.get(), CURLOPT_WRITEFUNCTION,
        +[](char *, size_t size, size_t count, std::atomic<size_t> *out) {
            pthread_attr_t attributes;
            size_t bytes = 0;
            pthread_getattr_np(pthread_self(), &attributes);
            pthread_attr_getstacksize(&attributes, &bytes);
            pthread_attr_destroy(&attributes);
            *out = bytes;
            return size * count;
        });
    output_of([&] { EXPECT_EQ(curlmgr_enqueue_job(transfer.get(), kDefaultPriority, "x"), 0); });
    EXPECT_EQ(stack, fake_vendor::kWorkerStack);
}

}  // namespace
