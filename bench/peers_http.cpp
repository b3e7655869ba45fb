// HTTP clients as peers: cpp-httplib and Boost.Beast, each with a connection for each request.
#include <httplib.h>

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <cstdlib>

#include "bench.h"

namespace {

void by_httplib(const std::string &target) {
    httplib::Client client("127.0.0.1", server_port());
    const auto result = client.Get(target, {{"Cookie", "Session=1000001"}});
    if (!result || result->body.empty()) std::abort();
}

void by_beast(const std::string &target) {
    namespace beast = boost::beast;
    namespace http = beast::http;
    using boost::asio::ip::tcp;
    boost::asio::io_context context;
    beast::tcp_stream stream(context);
    stream.connect(
        tcp::endpoint(boost::asio::ip::address_v4::loopback(), static_cast<unsigned short>(server_port())));
    http::request<http::empty_body> request(http::verb::get, target, 11);
    request.set(http::field::host, "127.0.0.1:" + std::to_string(server_port()));
    request.set(http::field::cookie, "Session=1000001");
    http::write(stream, request);
    beast::flat_buffer buffer;
    http::response<http::string_body> response;
    http::read(stream, buffer, response);
    if (response.body().empty()) std::abort();
    beast::error_code ignored;
    stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
}

}  // namespace

void add_request_peers(Row &row, const std::string &target) {
    row.contestants.push_back({"Beast", [target] { by_beast(target); }});
    row.contestants.push_back({"cpp-httplib", [target] { by_httplib(target); }});
}
