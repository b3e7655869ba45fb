// Holds the agent's polls back at the camera, so that a test decides what each cycle sees. While a poll is
// held the agent's queue is busy: no handler that asks the camera can be called.
#pragma once

#include "desk.h"

class PollGate {
  public:
    // Returns once a poll is held.
    explicit PollGate(Desk &desk);
    // Lets the polls go again.
    ~PollGate();
    PollGate(const PollGate &) = delete;
    PollGate &operator=(const PollGate &) = delete;

    // Answers the held poll with what the camera's state is now, and returns when the agent has dealt with it
    // and its next poll is held.
    void let_cycle_pass();

  private:
    int close();
    void wait_until_held();

    Desk &desk_;
    int fault_;
};
