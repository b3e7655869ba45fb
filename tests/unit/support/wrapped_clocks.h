// The names under which clock_gettime and clock_nanosleep are called, for --wrap: with 64-bit times on a
// 32-bit target they are others.
#ifndef UNIT_SUPPORT_WRAPPED_CLOCKS_H
#define UNIT_SUPPORT_WRAPPED_CLOCKS_H

#include <time.h>

#if __TIMESIZE == 32
#define WRAPPED_GETTIME __wrap___clock_gettime64
#define REAL_GETTIME __real___clock_gettime64
#define WRAPPED_NANOSLEEP __wrap___clock_nanosleep_time64
#define REAL_NANOSLEEP __real___clock_nanosleep_time64
#else
#define WRAPPED_GETTIME __wrap_clock_gettime
#define REAL_GETTIME __real_clock_gettime
#define WRAPPED_NANOSLEEP __wrap_clock_nanosleep
#define REAL_NANOSLEEP __real_clock_nanosleep
#endif

#endif
