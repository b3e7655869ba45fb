// Looks at camera, SDK and device again and again, and tells the hub what is new:
//   camera, faults, sdk, device            values
//   requests, alarms, samples, marks       lists
#pragma once

#include <map>
#include <string>

#include "backend.h"
#include "hub.h"

class Watcher {
  public:
    Watcher(const Backend &behind, Hub &page) : behind_(behind), page_(page) {}
    // Never returns; one thread.
    [[noreturn]] void watch();

  private:
    void look_at_camera();
    void look_at_requests();
    void look_at_sdk();
    void look_at_alarms();
    void look_at_device();
    void take_sample();
    void mark(const char *kind, const std::string &text);

    const Backend &behind_;
    Hub &page_;
    json camera_, sdk_, device_ = json::object();
    int pid_ = 0, reboots_ = -1;
    double alarms_seen_ = 0, alarm_number_ = 0;  // seq of the SDK; own number
    double requests_from_ = 0;                   // all up to here are told and finished
    std::map<double, bool> requests_told_;       // beyond: seq, finished
    double restarts_ = -1;
};
