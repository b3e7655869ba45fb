// How a request is answered: as it should be, or in one of the ways in which a camera or a network fails.
// Each way is a row of one table. Called on the connection's thread.
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "http.h"
#include "json.h"
#include "link.h"

struct Exchange {
    Network &net;
    ConnectionLink &link;
    const HttpRequest &request;
    std::function<HttpReply()> true_reply;  // carries the request out; called once at most
    std::atomic<bool> &cleared;             // the misbehaviour was taken back
    int status = 0;                         // of the reply; set before the reply leaves
};

struct MisbehaviourKind {
    const char *name;
    const char *defaults;  // its parameters as a JSON object
    // Answers; returns whether the connection may serve another request.
    bool (*run)(Exchange &x, const json &parameters);
};

// Null when there is no such kind.
const MisbehaviourKind *find_misbehaviour(const std::string &name);

// Sends the reply as it should be; returns whether the connection may serve another request.
bool send_reply(Exchange &x, HttpReply reply);
