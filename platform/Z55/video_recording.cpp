#include "video_recording.h"

#include <pthread.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>

#include "agent/utils/conf_file.h"
#include "agent/utils/files.h"
#include "agent/utils/os.h"
#include "agent/utils/text.h"
#include "exports.h"
#include "recording_job.h"
#include "recording_log.h"
#include "recording_piece.h"
#include "shared.h"

namespace {

constexpr size_t kStartTimeSize = 15;

// Read from the configuration when first needed.
constinit std::mutex period_lock;
constinit int cached_period = 0;  // seconds; 0: not yet

int recording_period() {
    const std::lock_guard<std::mutex> lock(period_lock);
    if (cached_period == 0) cached_period = conf_number("RECORDING_PERIOD", 0).value_or(0);
    return cached_period;
}

int refuse_start(int recording) {
    std::printf("%s:line=%d:video_recording=%d\n", "start_recording_video", 382, recording);
    return kAlreadyRecording;
}

int refuse_stop() {
    std::puts("Video_recording is 0. Return. ");
    return kNotRecording;
}

// The turn is held until the thread stands: a stop that comes meanwhile finds both or nothing.
int give_to_cutting_thread(long len) {
    if (!make_recording_job(static_cast<int>(std::clamp<long>(len, INT_MIN, INT_MAX)))) return 0;
    pthread_t thread{};
    void *argument = reinterpret_cast<void *>(static_cast<std::intptr_t>(len));
    if (const int error = pthread_create(&thread, &recVideo_attr, autocut_recording, argument)) {
        cutting_thread_failed();
        std::puts("can't create thread qq");
        return error;
    }
    store_shared(recVideo_t, thread);
    return 0;
}

// Seconds until the next cut; 0 or less where there is none: one piece without end.
int piece_length(int left, int period) {
    if (left == 0) return period;
    return left > 0 && period > 0 ? std::min(left, period) : left;
}

// What the next piece leaves of a job; 0 or less: nothing, or a job without end.
int left_after_piece(int left, int period) {
    if (left == 0) return 0;
    return period > 0 ? left - period : 0;
}

// Whether the job goes on with another piece.
bool close_cut_piece(Cutter &cutter, int remaining) {
    const bool last = cutter.left > 0 && remaining < 1;
    Turn turn;
    const CutTurn found = turn.to_cut(cutter);
    if (found == CutTurn::new_job || found == CutTurn::leave) return false;
    std::printf("(autocut_recording) stop_recording_video. len = %d\n", remaining);
    std::puts("stop_recording_video called");
    if (found == CutTurn::taken) {
        int refusal = 0;
        // One that stays open is cut the next time.
        (void)close_piece(turn, recording_start(), &cutter, refusal);
    } else {
        refuse_stop();
    }
    cutter.left = remaining;
    if (last) nothing_left_to_cut(cutter);
    return !last;
}

void start_next_piece(Cutter &cutter) {
    Turn turn;
    const CutTurn found = turn.to_go_on(cutter);
    if (found == CutTurn::new_job || found == CutTurn::leave) return;
    std::printf("(autocut_recording). start_recording_video len = %d\n", cutter.left);
    if (found == CutTurn::as_it_is) {
        refuse_start(1);
        return;
    }
    int refusal = 0;
    if (start_piece(turn, cutter.left, &cutter, refusal)) cutter.job = turn.job_number();
}

// One piece of the job: waits for its end and starts the next one. A camera that refuses either is asked
// again at the next cut.
void cut_piece(Cutter &cutter, int period) {
    const int wait = piece_length(cutter.left, period);
    if (wait <= 0) {
        nothing_left_to_cut(cutter);
        return;
    }
    std::printf("Start Sleeping for %d sec\n", wait);
    sleep_as_cutter(cutter, pause_deadline(wait));
    if (close_cut_piece(cutter, left_after_piece(cutter.left, period))) start_next_piece(cutter);
}

}  // namespace

int start_recording_video(long len) {
    if (const int recording = load_shared(video_recording)) return refuse_start(recording);
    Turn turn;
    if (!turn.to_start()) return refuse_start(1);
    int result = 0;
    if (!start_piece(turn, len, nullptr, result)) return result;
    return give_to_cutting_thread(len);
}

int stop_recording_video(void) {
    std::puts("stop_recording_video called");
    Turn turn;
    int result = 0;
    switch (turn.to_stop()) {
        case StopTurn::taken:
            return close_piece(turn, recording_start(), nullptr, result) ? 0 : result;
        case StopTurn::done:
            return 0;
        case StopTurn::nothing_runs:
            break;
    }
    return refuse_stop();
}

void *autocut_recording(void *length) {
    Cutter cutter = enter_cutting(static_cast<int>(reinterpret_cast<std::intptr_t>(length)));
    const int period = recording_period();
    std::printf("Record Period = %d\n", period);
    while (cutter_stays(cutter)) cut_piece(cutter, period);
    return nullptr;
}

int get_record_start_time(char *buffer, int size) {
    const time_t start = recording_start();
    if (start == 0) {
        std::puts("(get_record_start_time) fail: g+start_recording_video = 0");
        return -1;
    }
    if (buffer == nullptr || size < static_cast<int>(kStartTimeSize)) {
        std::printf("(get_record_start_time) fail: buffer size is smaller than 15 :%d\n", size);
        return -1;
    }
    std::memset(buffer, 0, static_cast<size_t>(size));
    copy_text(buffer, static_cast<size_t>(size), recording_time_text(start));
    std::printf("(get_record_start_time):%s\n", buffer);
    return 0;
}

void checkVideoRecording() {
    std::puts("checkVideoRecording");
    const std::string path = recording_flag_path();
    if (!open_regular(path.c_str())) {
        std::printf("recording temp file(%s) not existed\n", path.c_str());
        return;
    }
    std::printf("recording temp file(%s) existed, stop recording\n", path.c_str());
    stop_recording_video();
}

void delayed_video_stop(long seconds) {
    std::printf("delayed_video_stop start sleeping for %ld\n", seconds);
    sleep_milliseconds(std::int64_t{seconds} * 1000);
    std::puts("delayed_video_stop finish sleeping");
    stop_recording_video();
}
