// A captured log as a module's own story: what the request primitives print around a transfer shrinks to one
// mark per request, so that a golden text holds the module's own lines to the character and the requests in
// their place between them.
#ifndef TESTS_UNIT_SUPPORT_MARKED_LOG_H
#define TESTS_UNIT_SUPPORT_MARKED_LOG_H

#include <string>

// `log` with each request of the primitives reduced to "[GET path]", "[POST path]" (curl_GET, curl_POST),
// "[QUERY path]" (perform_curl) or "[ACTION]" (easyRemoteControl) on a line of its own; `path` is what
// follows
// "/CGI/" of the fake camera's URL. A request that failed is followed by "[failed]". Bodies must hold no line
// end.
std::string marked_log(const std::string &log);

#endif
