// The misbehaviour that was ordered: which requests it takes, how often, and what it is. Any thread.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "http.h"
#include "json.h"
#include "misbehaviour.h"

struct Fault {
    int id = 0;
    const MisbehaviourKind *kind = nullptr;
    json order;              // all its fields, defaults filled in
    json parameters;         // those of its kind
    int seen = 0, hits = 0;  // requests that fitted; requests that it took
    std::atomic<bool> cleared{false};
};

struct FaultList {
    std::mutex lock;  // guards the list and each fault's counts
    std::vector<std::shared_ptr<Fault>> faults;
    int last_id = 0;
};

// Adds what README describes; returns its id. Throws std::invalid_argument with the reason.
int add_fault(FaultList &list, const json &order);

// The first fault that takes this request, or null.
std::shared_ptr<Fault> take_fault(FaultList &list, const HttpRequest &request);

// Takes back the fault of that id, or all of them with id 0; false when there is no such fault.
bool clear_faults(FaultList &list, int id);

json faults_json(FaultList &list);
