// The device around the agent, as files: this program runs inside the device view. What the page shows of it,
// and the troubles that are files: tools that fail, a full card, a stepped clock. Called from any thread.
#pragma once

#include <string>

#include "json.h"

// {reboots, marker, tools, card, clock_offset, files, recording_log, conf}
json device_state();
// {pid, threads, descriptors, rss_kb, cpu_ms} of a process; null where it is gone.
json process_state(int pid);

// The following answer "" or what is wrong.
// `order`: exit, delay, stdout; null removes each.
std::string order_tool(const std::string &tool, const json &order);
// Leaves no room on the card, or takes the filler away.
std::string fill_card(bool full);
// Steps the agent's wall clock; needs the preload with BEND_FILE.
std::string step_clock(double seconds);

// The same three by their paths in the console's interface, for scenarios: "/api/card" and so on.
std::string order_device(const std::string &path, const json &order);

// The path of a recording or photo on the card; "" for a name that is none.
std::string media_path(const std::string &name);
