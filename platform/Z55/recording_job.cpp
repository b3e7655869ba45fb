#include "recording_job.h"

#include <pthread.h>

#include <cstdint>
#include <mutex>

#include "exports.h"
#include "shared.h"

namespace {

constinit std::int64_t g_start_recording_time = 0;  // atomic, see recording_start(); as video_recording

struct Job {
    std::mutex lock;              // held for a look or a move, never over a request, a pause or a log line
    unsigned number = 0;          // grows with every start and stop from outside that takes effect: whoever
                                  // holds another number has lost the job
    bool to_be_cut = false;       // a cutting thread is to go on with it
    int length = 0;               // seconds, for the cutting thread to take over; as Cutter::left
    bool turn_taken = false;      // a start or stop is under way
    int stops_waiting = 0;        // for their turn; the closing of a piece serves them all
    unsigned closings = 0;        // pieces closed so far
    StopTurn closing_means = {};  // to the stops that waited for the last of them
    unsigned cutter = 0;          // role of the cutting thread; 0: there is none
    unsigned last_role = 0;
    bool thread_coming = false;  // it is created and has not entered
};

constinit Job job;

// Broadcast at every move. Never destroyed, as the lock: exit() may run while threads wait.
pthread_cond_t moved;

void init_moved() {
    pthread_condattr_t monotonic;
    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
    pthread_cond_init(&moved, &monotonic);
    pthread_condattr_destroy(&monotonic);
}

class Locked {
  public:
    Locked() {
        static pthread_once_t once = PTHREAD_ONCE_INIT;
        pthread_once(&once, init_moved);
        job.lock.lock();
    }
    ~Locked() {
        job.lock.unlock();
    }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;

    void wait() {
        pthread_cond_wait(&moved, job.lock.native_handle());
    }
    void wait_for_turn() {
        while (job.turn_taken) wait();
    }
    // False when the deadline has passed.
    bool wait_until(const timespec &deadline) {
        return pthread_cond_timedwait(&moved, job.lock.native_handle(), &deadline) == 0;
    }
};

bool runs() {
    return load_shared(video_recording) != 0;
}

void set_running(time_t start) {
    store_shared(video_recording, 1);
    store_shared(g_start_recording_time, static_cast<std::int64_t>(start));
}

void end_job() {
    job.number++;
    job.to_be_cut = false;
}

void make_job(int length) {
    job.number++;
    job.to_be_cut = true;
    job.length = length;
}

void serve_waiting_stops(StopTurn meaning) {
    job.closings++;
    job.closing_means = meaning;
    job.stops_waiting = 0;
}

bool holds_job(const Cutter &cutter) {
    return job.to_be_cut && job.number == cutter.job;
}

// Takes over a job that replaced the one the cutting thread holds.
bool take_over(Cutter &cutter) {
    if (job.cutter != cutter.role || !job.to_be_cut || holds_job(cutter)) return false;
    cutter.job = job.number;
    cutter.left = job.length;
    return true;
}

// Only its own: another thread may have the role by now.
void give_up_role(const Cutter &cutter) {
    if (job.cutter == cutter.role) job.cutter = 0;
}

// `taken` while its job stands; the role is its own again if it had given that up.
CutTurn look_as_cutter(Cutter &cutter) {
    if (take_over(cutter)) return CutTurn::new_job;
    if (holds_job(cutter)) {
        job.cutter = cutter.role;
        return CutTurn::taken;
    }
    give_up_role(cutter);
    return CutTurn::leave;
}

}  // namespace

time_t recording_start() {
    return static_cast<time_t>(load_shared(g_start_recording_time));
}

Cutter enter_cutting(int length) {
    Locked locked;
    if (!job.thread_coming) {
        locked.wait_for_turn();
        make_job(length);
    }
    job.thread_coming = false;
    job.cutter = ++job.last_role;
    return {job.cutter, job.number, job.length};
}

void sleep_as_cutter(const Cutter &cutter, const timespec &deadline) {
    Locked locked;
    const auto is_replaced = [&cutter] { return job.to_be_cut && job.number != cutter.job; };
    while (!is_replaced() && locked.wait_until(deadline)) {
    }
}

bool cutter_stays(Cutter &cutter) {
    const Locked locked;
    return look_as_cutter(cutter) != CutTurn::leave;
}

void nothing_left_to_cut(const Cutter &cutter) {
    const Locked locked;
    if (holds_job(cutter)) job.to_be_cut = false;
}

void Turn::take() {
    held_ = true;
    job_ = job.number;
    job.turn_taken = true;
}

void Turn::give_back() {
    held_ = false;
    job.turn_taken = false;
    pthread_cond_broadcast(&moved);
}

bool Turn::to_start() {
    Locked locked;
    locked.wait_for_turn();
    if (runs()) return false;
    take();
    return true;
}

StopTurn Turn::to_stop() {
    Locked locked;
    const unsigned closings = job.closings;
    const bool waits = runs() && job.turn_taken;
    if (waits) job.stops_waiting++;
    while (waits && job.turn_taken) {
        locked.wait();
        if (job.closings != closings) return job.closing_means;
    }
    if (waits) job.stops_waiting--;
    if (!runs()) {
        end_job();
        return StopTurn::nothing_runs;
    }
    take();
    return StopTurn::taken;
}

CutTurn Turn::to_cut(Cutter &cutter) {
    Locked locked;
    locked.wait_for_turn();
    if (const CutTurn found = look_as_cutter(cutter); found != CutTurn::taken) return found;
    if (runs()) {
        take();
        return CutTurn::taken;
    }
    if (cutter.left > 0) return CutTurn::as_it_is;
    job.to_be_cut = false;  // without end and without a piece: there would never be another one
    give_up_role(cutter);
    return CutTurn::leave;
}

CutTurn Turn::to_go_on(Cutter &cutter) {
    Locked locked;
    locked.wait_for_turn();
    if (const CutTurn found = look_as_cutter(cutter); found != CutTurn::taken) return found;
    if (runs()) return CutTurn::as_it_is;
    take();
    return CutTurn::taken;
}

bool Turn::stopped() const {
    const Locked locked;
    return job.number != job_;
}

bool Turn::begun(time_t start) {
    const Locked locked;
    if (job.number != job_) return false;
    set_running(start);
    return true;
}

void Turn::begun_in_spite(time_t start) {
    const Locked locked;
    set_running(start);
    job.to_be_cut = true;
    job_ = job.number;
}

void Turn::ended_by_stop() {
    const Locked locked;
    end_job();
    serve_waiting_stops(StopTurn::nothing_runs);
    give_back();
}

void Turn::ended_by_cut(const Cutter &cutter) {
    const Locked locked;
    if (job.stops_waiting > 0) end_job();
    give_up_role(cutter);
    serve_waiting_stops(StopTurn::done);
    give_back();
}

void Turn::ended() {
    if (!held_) return;
    const Locked locked;
    give_back();
}

bool make_recording_job(int length) {
    const Locked locked;
    make_job(length);
    if (job.cutter != 0) return false;
    job.cutter = ++job.last_role;
    job.thread_coming = true;
    return true;
}

void cutting_thread_failed() {
    const Locked locked;
    job.cutter = 0;
    job.thread_coming = false;
}

bool leave_recording() {
    const Locked locked;
    const bool ran = runs();
    store_shared(g_start_recording_time, std::int64_t{0});
    store_shared(video_recording, 0);
    return ran;
}
