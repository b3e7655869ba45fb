// The console's HTTP: the page, one server-sent stream of all that happens, the live picture, and the JSON
// behind every button. What it answers is described in web/openapi.json.
#pragma once

#include <httplib.h>

#include <string>

#include "backend.h"
#include "hub.h"
#include "live.h"
#include "scenario.h"

struct Console {
    const Backend &behind;
    Hub &page;
    Live &pictures;
    Scenarios &scripts;
    std::string web, log_reference;  // the page's folder; the texts of the log as JSON
};

// Answers every request that does not come from this machine's own page (Host, Origin) with 403, and adds the
// routes. `port` is the one that it listens at.
void add_routes(httplib::Server &server, const Console &desk, int port);
