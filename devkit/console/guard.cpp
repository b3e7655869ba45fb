#include "guard.h"

#include <string>

namespace {

constexpr const char *kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; media-src 'self' "
    "blob:; "
    "connect-src 'self'; worker-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

bool is_own(const std::string &host, int port) {
    const std::string suffix = ":" + std::to_string(port);
    return host == "127.0.0.1" + suffix || host == "localhost" + suffix;
}

bool is_welcome(const httplib::Request &request, int port) {
    if (!is_own(request.get_header_value("Host"), port)) return false;
    if (request.get_header_value("Sec-Fetch-Site") == "cross-site") return false;
    if (!request.has_header("Origin")) return true;
    const std::string origin = request.get_header_value("Origin");
    return origin.starts_with("http://") && is_own(origin.substr(7), port);
}

}  // namespace

void guard(httplib::Server &server, int port) {
    server.set_default_headers({{"Content-Security-Policy", kPolicy},
                                {"X-Content-Type-Options", "nosniff"},
                                {"Referrer-Policy", "no-referrer"},
                                {"Cross-Origin-Resource-Policy", "same-origin"}});
    server.set_pre_routing_handler([port](const httplib::Request &request, httplib::Response &response) {
        if (is_welcome(request, port)) return httplib::Server::HandlerResponse::Unhandled;
        response.status = 403;
        response.set_content("{\"error\":\"this page is for this machine's own browser\"}\n",
                             "application/json");
        return httplib::Server::HandlerResponse::Handled;
    });
}
