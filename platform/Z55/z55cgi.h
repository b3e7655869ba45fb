// The request primitives: each prepares one transfer to the camera's CGI, hands it to the job queue and
// blocks until it is performed, however long that takes. Any thread but the queue's worker. It knows no
// parameter names.
#ifndef Z55_Z55CGI_H
#define Z55_Z55CGI_H

#include <string>

#include "agent/utils/reply.h"
#include "exports.h"

// GET of `url` with the current session's cookie. The last piece of the body on status 200; null on any other
// status or on a transfer error, whose libcurl code is then in `res`.
Reply curl_GET(const std::string &url);

// POST of `body` (from post_body) to `url` with the current session's cookie. Returns the libcurl result, 0
// on success, or -1 when the queue is full; the HTTP status is not looked at.
int curl_POST(const std::string &url, const std::string &body);

// The body that the camera expects for `document`: pseudo-header lines, an empty line, the document; cut to
// what post_fields holds. `length` is the number in the pseudo-header, the document's length where it is not
// given.
std::string post_body(const std::string &document);
std::string post_body(const std::string &document, int length);

// High-priority GET of "url?query" with `key`'s cookie. The last piece of the body on status 200, else null.
Reply perform_curl(const std::string &url, const std::string &key, const std::string &query);

// The four below send `cookie_text` as it is, read the camera's address from the configuration at each call
// and return 0, or -1 on a transfer error or a status other than 200. `reply` holds at most the last piece's
// first 128 bytes.

int mobileAudio(const std::string &cookie_text, const void *audio, size_t length, std::string &reply);
int getSingleCameraStatus(const std::string &cookie_text, const char *query, std::string &reply);
int easyRemoteControl(const std::string &cookie_text, const char *action, std::string &reply);

// GET of `path` (which begins with "/") without a cookie. `photo->data` is the caller's malloc block from the
// call on, whatever the result; null when memory ran out.
int z55_get_photo(photo_buffer *photo, const char *path);

// Keeps copies of what a generic request sends in `cookie` and `post_fields`; what is sent is the caller's
// own text.
void remember_cookie(const std::string &cookie_text);
void remember_post_fields(const std::string &body);

// libcurl write callback: keeps the piece as the text of the Reply behind `body` and logs it. Returns 0,
// which ends the transfer, when there is no memory for it.
size_t poll_write_callback(char *piece, size_t size, size_t nmemb, void *body);

#endif
