#include "status_query.h"

#include <cstdio>

#include "../z55cgi.h"
#include "exchange.h"
#include "utils/reply.h"
#include "utils/reply_text.h"
#include "utils/text.h"

namespace {

constexpr size_t kMarkerSize = 40;  // with its error code and a NUL
constexpr size_t kStatusQuerySize = 200;
constexpr size_t kSettingKeyBudget = 20;  // bytes of a settings query per key, and once more as a spare

std::string error_marker(const std::string &code) {
    return cut_to_buffer(std::string(kErrorMarker) + code, kMarkerSize);
}

std::string joined(const char *prefix, const std::vector<const char *> &names, size_t size) {
    std::string query = prefix;
    for (const char *name : names) query.append(name).append("&");
    if (!query.empty()) query.pop_back();
    return cut_to_buffer(query, size);
}

// The elements of these names in `reply`, and behind them its error code.
std::vector<XmlElement> find_elements(std::string_view reply, const std::vector<const char *> &names) {
    std::vector<XmlElement> elements;
    elements.reserve(names.size() + 1);
    for (const char *name : names) elements.push_back({name});
    elements.push_back({kErrorCode});
    find_xml_elements(reply, elements);
    return elements;
}

// Sends the query and takes each key's value out of the reply.
std::optional<QueryResult> query_values(const std::string &url, const std::string &key,
                                        const std::string &query, const std::vector<const char *> &names) {
    const auto reply = perform_curl(url, key, query);
    if (!reply) {
        std::puts("getCameraStatuses failed. response of perform_curl() is null.");
        return std::nullopt;
    }
    const auto elements = find_elements(*reply, names);
    QueryResult values(names.size());
    if (const auto code = camera_error(elements.back())) {
        std::printf("getCameraStatuses failed due to polling failing.Errorcode: %s \n", code->c_str());
        if (!values.empty()) values[0] = error_marker(*code);
        return values;
    }
    for (size_t i = 0; i < names.size(); i++) {
        if (const auto text = elements[i].text()) {
            values[i].emplace(*text);
        } else {
            std::printf("value  %d = NULL\n", static_cast<int>(i));
        }
    }
    return values;
}

}  // namespace

std::optional<std::string> getCameraStatus(const std::string &key, const std::string &host,
                                           const char *name) {
    const auto reply = perform_curl(camera_url(host.c_str(), "/CGI/CameraStatus"), key, name);
    if (!reply) {
        std::puts("getCameraStatus failed. response of perform_curl() is null.");
        return std::nullopt;
    }
    const auto code = camera_error(*reply);
    if (!code) return find_xml_value(*reply, name);
    std::printf("getCameraStatus failed due to polling failing. key:%s Errorcode: %s \n", name,
                code->c_str());
    return error_marker(*code);
}

std::optional<QueryResult> getCameraStatuses(const std::string &key, const std::string &host,
                                             const std::vector<const char *> &names, bool notification) {
    const std::string query = joined(notification ? "Notification&" : "", names, kStatusQuerySize);
    std::printf("*** keys_str = \"%s\"***\n", query.c_str());
    return query_values(camera_url(host.c_str(), "/CGI/CameraStatus"), key, query, names);
}

std::optional<QueryResult> getCameraSettings(const std::string &key, const std::string &host,
                                             const std::vector<const char *> &names) {
    const std::string query = joined("", names, (names.size() + 1) * kSettingKeyBudget);
    return query_values(camera_url(host.c_str(), "/CGI/CameraSetting"), key, query, names);
}

const char *query_error(const QueryResult &values) {
    if (values.empty() || !values[0] || !values[0]->starts_with(kErrorMarker)) return nullptr;
    return values[0]->c_str() + kErrorMarker.size();
}
