// The instants of a run: what a test tells of (pauses, requests) and every line of the log, on whatever
// thread each falls. At one of them something is done from outside. Links with --wrap of puts, printf and
// pthread_cond_wait.
#ifndef UNIT_SUPPORT_INSTANTS_H
#define UNIT_SUPPORT_INSTANTS_H

#include <functional>
#include <string>

#include "fake_os.h"

namespace instants {

// Counts anew. At instant `number` (from 0) `act` runs on a thread of its own; the thread on which the
// instant falls goes on when `act` has returned or waits on a condition. Never, where `number` is negative.
void begin(int number, std::function<void()> act);

// An instant.
void pass(const std::string &what);

void stop_counting();

// How often a wait on a condition was entered in this process.
int waits();

// The same; joins the thread of `act` and returns the instants so far, "line ..." for those of the log.
Texts end();

}  // namespace instants

#endif
