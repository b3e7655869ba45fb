// What a program that the agent starts inherits; for the door's own sources. Async-signal-safe.
#ifndef Z55_AGENT_UTILS_OS_INHERIT_H
#define Z55_AGENT_UTILS_OS_INHERIT_H

// Closes every descriptor above 2.
void close_descriptors();

// Sets every signal to its default and unblocks all.
void reset_signals();

#endif
