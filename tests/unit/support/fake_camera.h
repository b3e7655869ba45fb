// A camera's web server on 127.0.0.1:8080 (each test process has a network of its own): keeps every request
// to the byte and answers as the test says: head, versions, pieces and half replies are the test's, which no
// library's server leaves to its user. Threads of its own; every member may be called on any thread.
#ifndef UNIT_SUPPORT_FAKE_CAMERA_H
#define UNIT_SUPPORT_FAKE_CAMERA_H

#include <concepts>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fake_os.h"

struct CameraRequest {
    std::string method, target, version;
    std::string cookie;  // the Cookie header's value, "" without one
    std::string head;    // request line and headers as they came, with the empty line
    std::string body;

    // The value of a header by its name as sent, "" without one.
    std::string header(const std::string &name) const;
    // "GET /CGI/CameraStatus?SD Session=12" ("-" for no cookie), and for a body "\n" and the body.
    std::string text() const;
};

struct CameraReply {
    std::string body = "";
    int status = 200;
    Texts headers = {};                // whole lines without line end: "Location: /CGI/Other"
    std::string version = "HTTP/1.1";  // of the status line
    Texts chunks = {};                 // in place of `body`: sent in HTTP chunks, so that each is a piece
    std::string raw = "";              // in place of all the above: these bytes, then the connection closes
    bool hang_up = false;              // closes the connection without an answer
    std::function<void(const CameraRequest &)> before = {};  // called before the answer; may block
};

class FakeCamera {
  public:
    FakeCamera();
    ~FakeCamera();
    FakeCamera(const FakeCamera &) = delete;
    FakeCamera &operator=(const FakeCamera &) = delete;

    static constexpr char kHost[] = "127.0.0.1:8080";  // fits the 15 characters of "hostIP"

    // What the next requests of `target` get, one reply each; the last one stays. `target` is a whole target,
    // or its part before the "?", which is looked up second. Without any the camera answers 404.
    void reply(const std::string &target, std::vector<CameraReply> replies);
    template <std::convertible_to<std::string> Text>
    void reply(const std::string &target, const Text &body) {
        reply(target, std::vector<CameraReply>{{.body = body}});
    }

    // In place of the table: every request goes to `answer`, on the connection's thread.
    void on_request(std::function<CameraReply(const CameraRequest &)> answer);

    std::vector<CameraRequest> requests() const;  // so far, in the order of their coming
    Texts seen() const;                           // the same, each as its text()
    void forget();                                // empties both
    int most_at_once() const;                     // requests being answered at one moment

    // Refuses connections from now on (closes the port), or takes them again.
    void go_away();
    void come_back();

  private:
    struct Server;
    std::unique_ptr<Server> server_;
};

#endif
