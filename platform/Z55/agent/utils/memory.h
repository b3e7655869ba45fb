// How the process deals with memory.
#ifndef Z55_AGENT_UTILS_MEMORY_H
#define Z55_AGENT_UTILS_MEMORY_H

// To be called at the start of main, before any other thread. From then on the C library keeps freed memory
// in one arena instead of one for each thread, where it has arenas at all, and a C++ allocation that fails
// ends the process at once, with a line on standard error and exit code 1: whoever supervises the agent
// starts it again. Allocations by malloc go on failing to their callers.
void prepare_memory();

// Gives the whole pages of freed memory back to the kernel: the C library keeps what many callers at once
// have used, as it lies between blocks that live on. Does nothing where the library cannot. Any thread;
// others that allocate meanwhile wait for some microseconds, after a storm of callers for less than a
// millisecond.
void return_free_memory();

#endif
