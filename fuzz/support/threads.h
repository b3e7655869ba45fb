// Threads and the processor's clock are the target's: what the product would start is kept and run when the
// input says.
#ifndef FUZZ_THREADS_H
#define FUZZ_THREADS_H

namespace threads {

// From now on the calling thread's pthread_create starts nothing, and clock() gives what is set here.
void hold();
void set_clock(long ticks);

// Whether such a pthread_create fails, with EAGAIN.
void refuse(bool all);

// Runs the thread that has waited longest, on this one; false when there is none.
bool run_next();
int waiting();

}  // namespace threads

#endif
