// What the tests of the SDK's handlers start from: a configured camera whose address the handlers know, and
// calls whose result, text and logs are kept together.
#ifndef UNIT_AK_MODEL_HANDLER_TEST_H
#define UNIT_AK_MODEL_HANDLER_TEST_H

#include <pthread.h>

#include <cstdlib>
#include <string>

#include "agent_test.h"
#include "exports.h"
#include "marked_log.h"

// The three setting groups as a camera gives them, every element with a text of its own.
inline constexpr char kMotion[] =
    "<CameraSetting><MOTION_DETECTION><ENABLE>ON</ENABLE><SENSITIVITY>6</SENSITIVITY></MOTION_DETECTION>"
    "</CameraSetting>";
inline constexpr char kAudio[] =
    "<CameraSetting><AUDIO_DETECTION><ENABLE>OFF</ENABLE><SENSITIVITY>2</SENSITIVITY></AUDIO_DETECTION>"
    "</CameraSetting>";
inline constexpr char kTemperature[] =
    "<CameraSetting><TEMPERATURE_ALERT><ENABLE>OFF</ENABLE><MAX>38</MAX><MIN>10</MIN></TEMPERATURE_ALERT>"
    "</CameraSetting>";

// The body that a POST of `document` must have; `length` where the pseudo-header's number is another.
inline std::string posted(const std::string &document, size_t length) {
    return "HTTP/1.1\nContent-Length: " + std::to_string(length) +
           "\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\n" + document;
}
inline std::string posted(const std::string &document) {
    return posted(document, document.size());
}

inline std::string setup_request(const std::string &document) {
    return "POST /CGI/CameraSetup Session=12345\n" + posted(document);
}
inline std::string control_request(const std::string &document) {
    return "POST /CGI/RemoteControl Session=12345\n" + posted(document);
}
inline std::string get_request(const std::string &target) {
    return "GET /CGI/" + target + " Session=12345";
}

// What a call came to. `text` is what a read handler left in its buffer.
struct Outcome {
    int result = 0;
    std::string text;
    std::string log;     // standard output, requests as marks
    std::string errors;  // standard error
};

template <typename Call>
Outcome outcome_of(Call call) {
    Outcome outcome;
    outcome.errors =
        errors_of([&] { outcome.log = marked_log(output_of([&] { outcome.result = call(); })); });
    return outcome;
}

// Calls a read handler. The buffer must be of 130 bytes, zero after its text.
inline Outcome read_with(int (*handler)(const char *, char **), const char *name) {
    char *value = nullptr;
    Outcome outcome = outcome_of([&] { return handler(name, &value); });
    if (value == nullptr) {
        ADD_FAILURE() << "no buffer for " << (name != nullptr ? name : "(null)");
        return outcome;
    }
    outcome.text = value;
    for (size_t i = outcome.text.size(); i < 130; i++) EXPECT_EQ(value[i], 0) << "byte " << i;
    std::free(value);
    return outcome;
}

// A text that is no name of anything.
struct UndefinedRow {
    const char *name, *text;
};

class HandlerTest : public CameraTest {
  protected:
    void SetUp() override {
        CameraTest::SetUp();
        std::string(FakeCamera::kHost).copy(hostIP, sizeof hostIP - 1);
        gResolutionType = 1;
        for (pthread_attr_t *attributes : {&resolutionChange_attr, &recVideo_attr}) {
            pthread_attr_init(attributes);
        }
        camera.reply("/CGI/CameraSetting?MOTION_DETECTION", kMotion);
        camera.reply("/CGI/CameraSetting?AUDIO_DETECTION", kAudio);
        camera.reply("/CGI/CameraSetting?TEMPERATURE_ALERT", kTemperature);
        camera.reply("/CGI/CameraStatus?LullabyMode", "<LullabyMode>ALL</LullabyMode>");
        camera.reply("/CGI/CameraSetup", "<Done></Done>");
        camera.reply("/CGI/RemoteControl", "<Done></Done>");
    }
};

#endif
