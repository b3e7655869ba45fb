// How tasks grow, and how long the handlers take.
#ifndef BENCH_CURVES_H
#define BENCH_CURVES_H

#include <cstdio>

// Prints a line for each point: curve, x, microseconds (of the fastest tenth of rounds the slowest; KiB in
// the curve of memory). Some two minutes.
void measure_curves(std::FILE *report);

// Prints a line for each handler under each load: load, handler, own requests, demanded pauses in
// milliseconds, its milliseconds (median, 95th percentile, most) and how often it failed; the first line is
// for a bare request to the same camera, the simulated one. Some three minutes.
void measure_latency(std::FILE *report);

#endif
