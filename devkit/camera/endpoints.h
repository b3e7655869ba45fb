// What the CGI answers: one function per endpoint, each with its effect on the camera. Any thread.
#pragma once

#include <string>

#include "camera.h"
#include "http.h"

// Carries the request out and returns the reply. Takes the camera's lock; does not block beyond small files.
HttpReply answer_request(Camera &cam, const HttpRequest &request);

// "<endpoint><ErrorCode>n</ErrorCode></endpoint>".
std::string error_document(const std::string &endpoint, int error);
