// Queries of several named values of the camera's CGI in one request each. Any thread; blocks for the
// transfer.
#ifndef Z55_AGENT_STATUS_QUERY_H
#define Z55_AGENT_STATUS_QUERY_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What stands before the error code of a query that the camera refused.
inline constexpr std::string_view kErrorMarker = "ERRORCODE:";

// A slot per key in the order of the keys: its value, or nothing where the reply lacks it. On a camera error
// slot 0 holds "ERRORCODE:" and the error code, cut to 39 characters, and the others hold nothing.
using QueryResult = std::vector<std::optional<std::string>>;

// Kept though nothing calls it: one status key. Its value, an "ERRORCODE:" marker, or nothing when there was
// no reply or no such element.
[[nodiscard]] std::optional<std::string> getCameraStatus(const std::string &key, const std::string &host,
                                                         const char *name);

// Several status keys, with the camera's pending notifications when `notification` is set. Nothing without a
// reply.
[[nodiscard]] std::optional<QueryResult> getCameraStatuses(const std::string &key, const std::string &host,
                                                           const std::vector<const char *> &names,
                                                           bool notification);

// Several setting groups. Nothing without a reply.
[[nodiscard]] std::optional<QueryResult> getCameraSettings(const std::string &key, const std::string &host,
                                                           const std::vector<const char *> &names);

// The error code behind an "ERRORCODE:" marker in slot 0, as text; null when the query succeeded.
const char *query_error(const QueryResult &values);

#endif
