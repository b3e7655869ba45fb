// The two streams of the log.
#ifndef Z55_AGENT_UTILS_LOG_STREAMS_H
#define Z55_AGENT_UTILS_LOG_STREAMS_H

// To be called at the start of main, before any other thread. From then on a line of standard output or
// standard error leaves as soon as it is whole, in one call to the system, in however many pieces it came.
void write_log_by_lines();

#endif
