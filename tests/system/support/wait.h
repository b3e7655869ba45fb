// Waiting for a condition, never for a time: looks again every two milliseconds of the machine's clock, after
// a second every ten: on a busy machine the looking takes its share.
#pragma once

#include <functional>
#include <string>

// Returns once `condition` holds; throws std::runtime_error naming `what` when it does not within so many
// seconds. The deadline is generous because machines are loaded; it is no part of what a test measures.
void wait_until(const std::string &what, const std::function<bool()> &condition, double seconds = 120);
