// What the agent sent to the camera on behalf of the cloud, in the order of its sending.
#pragma once

#include <string>
#include <vector>

#include "desk.h"

// The body of a generic POST as the camera gets it; the number is the document's length unless given.
inline std::string post_body(const std::string &document, long length = -1) {
    return "HTTP/1.1\nContent-Length: " +
           std::to_string(length < 0 ? static_cast<long>(document.size()) : length) +
           "\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\n" + document;
}

inline std::string get(const std::string &target) {
    return "GET /CGI/" + target + " ";
}

inline std::string post(const std::string &endpoint, const std::string &document, long length = -1) {
    return "POST /CGI/" + endpoint + " " + post_body(document, length);
}

// "METHOD target body" of each request after `since` that is no poll, clock synchronisation or login.
inline std::vector<std::string> commands(const Desk &desk, long since) {
    std::vector<std::string> sent;
    for (const json &request : desk.requests("", since)) {
        const std::string target = request["target"], body = request["body"];
        if (target.find("Notification") != std::string::npos ||
            target.find("CameraLogin") != std::string::npos || body.find("<Time>") != std::string::npos)
            continue;
        sent.push_back(request["method"].get<std::string>() + " " + target + " " + body);
    }
    return sent;
}
