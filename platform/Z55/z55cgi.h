// The request primitives: each sends one request to the camera's CGI through the job queue and blocks until
// its reply is there, however long that takes. Any thread but the queue's worker. It knows no parameter
// names. A `key` is the session key that the request is sent with.
#ifndef Z55_Z55CGI_H
#define Z55_Z55CGI_H

#include <string>

#include "agent/utils/reply.h"
#include "exports.h"

// hostIP; while nothing could be loaded into that, the configuration's now, "" where that cannot be read.
std::string camera_host();

// --- What the handlers ask of the camera at camera_host, with the key that the hook hands out.

// The reply to one status key or setting group; null as curl_GET.
[[nodiscard]] Reply get_status(const std::string &name);
[[nodiscard]] Reply get_setting(const std::string &group);

// Post a settings or a remote-control document. `length` is the number in the pseudo-header where it is not
// the document's length. Return curl_POST's result.
[[nodiscard]] int post_setup(const std::string &document);
[[nodiscard]] int post_remote_control(const std::string &document);
[[nodiscard]] int post_remote_control(const std::string &document, int length);

// --- The primitives.

// GET of `url` with the hook's key. The last piece of the body on status 200; null on any other status or on
// a transfer error, whose libcurl code is then in `res`.
[[nodiscard]] Reply curl_GET(const std::string &url);

// POST of `body` (from post_body) to `url` with the hook's key. Returns the libcurl result, 0 on success, or
// -1 when the queue is full; the HTTP status is not looked at.
[[nodiscard]] int curl_POST(const std::string &url, const std::string &body);

// The body that the camera expects for `document`: pseudo-header lines, an empty line, the document; cut to
// what post_fields holds. `length` is the number in the pseudo-header.
std::string post_body(const std::string &document, int length);
std::string post_body(const std::string &document);

// High-priority GET of "url?query". The last piece of the body on status 200, else null.
[[nodiscard]] Reply perform_curl(const std::string &url, const std::string &key, const std::string &query);

// The four below read the camera's address from the configuration at each call and return 0, or -1 on a
// transfer error or a status other than 200. `reply` holds at most the last piece's first 128 bytes.

[[nodiscard]] int mobileAudio(const std::string &key, const void *audio, size_t length, std::string &reply);
[[nodiscard]] int getSingleCameraStatus(const std::string &key, const char *query, std::string &reply);
[[nodiscard]] int easyRemoteControl(const std::string &key, const char *action, std::string &reply);

// GET of `path` (which begins with "/") without a cookie. `photo->data` is the caller's malloc block from the
// call on, whatever the result; null when memory ran out.
[[nodiscard]] int z55_get_photo(photo_buffer *photo, const char *path);

// Keeps copies of what a generic request sends in `cookie` and `post_fields`; what is sent is the caller's
// own text.
void remember_cookie(const std::string &cookie_text);
void remember_post_fields(const std::string &body);

// libcurl write callback: keeps the piece as the text of the Reply behind `body` and logs it. Returns 0,
// which ends the transfer, when there is no memory for it.
size_t poll_write_callback(char *piece, size_t size, size_t nmemb, void *body);

#endif
