// The camera's state as GET /state shows it.
#pragma once

#include "camera.h"
#include "cgi_server.h"
#include "journal.h"
#include "json.h"

// Takes the locks of its arguments, one after the other; any thread.
json state_json(const Camera &cam, Journal &log, CgiServer &cgi);
