// How a row is measured.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <cstdio>

#include "bench.h"

// Interleaved rounds: in each round every contestant does one batch. Prints a line for each contestant: row,
// name, nanoseconds of one task (median), and the median and the quartiles of the rounds' ratios to the
// reference.
void measure_times(const Row &row, std::FILE *report);

// Each of the first `contestants` does the task a few times, once in each window. Whoever counts from outside
// is told where a window begins and ends: callgrind by its requests, a tracer by a write to descriptor -1.
// Prints a line for each window: row, name, and the allocations in it.
void count_windows(const Row &row, size_t contestants, std::FILE *report);

// Requests start up to 0.1 s into a second or back to back: waits until that time of the second is past, and
// the next one is not near.
void pass_the_pacing();

#endif
