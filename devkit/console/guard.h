// Who may ask: pages of this server in a browser on this machine, and programs that are no browser. A foreign
// page is kept out by its Origin, one that has bent a name to 127.0.0.1 by its Host.
#pragma once

#include <httplib.h>

// Also sets the headers of every answer: what a page may load is its own scripts, styles and data, nothing
// inline.
void guard(httplib::Server &server, int port);
