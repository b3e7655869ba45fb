// The state of a recording job and the moves between its states, which video_recording.h draws. Nothing in
// here sends a request, touches a file or prints. Any thread. What does not say that it waits does not.
#ifndef Z55_RECORDING_JOB_H
#define Z55_RECORDING_JOB_H

#include <ctime>

// When the running recording began (seconds, as the camera's clock has them); 0 while none runs.
time_t recording_start();

// What the cutting thread holds of the job.
struct Cutter {
    unsigned role;  // which of the cutting threads so far; only the newest cuts
    unsigned job;   // which of the jobs so far; it is over when another one is now
    int left;       // seconds of the job from the piece under way on; 0: until somebody stops, < 0: not cut
};

// Makes the calling thread the cutting one: of the job of the start that created it, or, called by name, of
// whatever runs, as a job of `length` seconds (waits for the turn then).
Cutter enter_cutting(int length);

// Sleeps until `deadline` (monotonic clock) or until there is a new job to take over.
void sleep_as_cutter(const Cutter &cutter, const timespec &deadline);

// Whether there is still something to cut; `cutter` may hold a new job then. The thread leaves otherwise.
bool cutter_stays(Cutter &cutter);

// The cutting thread is through with its job, though the recording may go on.
void nothing_left_to_cut(const Cutter &cutter);

enum class StopTurn { taken, nothing_runs, done };

enum class CutTurn {
    taken,
    as_it_is,  // the recording to stop does not run, or the one to start runs already
    new_job,   // `cutter` holds another job now
    leave      // the job is over, or another thread cuts it
};

// The right to start or stop the recording. One thread at a time has it, for as long as the camera takes, and
// gives it back with one of the ended...() or at the latest when this goes.
class Turn {
  public:
    Turn() = default;
    ~Turn() {
        ended();
    }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

    // For a start from outside. Waits for the turn; false when a recording runs then.
    [[nodiscard]] bool to_start();

    // For a stop from outside. Waits for the turn only while a recording runs. `nothing_runs` ends the job
    // between two pieces and a start under way. `done`: the cutting thread has closed the piece meanwhile.
    [[nodiscard]] StopTurn to_stop();

    // For the cutting thread's stop and for its start. Both wait for the turn.
    [[nodiscard]] CutTurn to_cut(Cutter &cutter);
    [[nodiscard]] CutTurn to_go_on(Cutter &cutter);

    // Whether a stop from outside has come since the start took its turn.
    bool stopped() const;

    // The piece runs since `start`. Refused, and nothing changes, when stopped().
    [[nodiscard]] bool begun(time_t start);

    // The same although a stop has come: the camera would not take it, so that the job goes on.
    void begun_in_spite(time_t start);

    unsigned job_number() const {
        return job_;
    }

    // The turn ends: after a stop from outside or of a stopped start; after the cutting thread's stop, with
    // which it gives up its role: it has it again for the next piece, and a job that is made before has a
    // thread of its own; after anything else (does nothing when it has ended).
    void ended_by_stop();
    void ended_by_cut(const Cutter &cutter);
    void ended();

  private:
    void take();
    void give_back();

    bool held_ = false;
    unsigned job_ = 0;  // its number when the turn was taken
};

// The three below are for whoever holds the turn.

// The recording that has begun is a job of `length` seconds. True when it needs a cutting thread, which is to
// be created then; false when there is one, which takes it over.
[[nodiscard]] bool make_recording_job(int length);
void cutting_thread_failed();

// The piece is closed: no recording runs. Returns whether one did.
[[nodiscard]] bool leave_recording();

#endif
