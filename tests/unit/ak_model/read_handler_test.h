// What the tests of the two read handlers share: they differ in where a value comes from.
#ifndef UNIT_AK_MODEL_READ_HANDLER_TEST_H
#define UNIT_AK_MODEL_READ_HANDLER_TEST_H

#include <curl/curl.h>

#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "handler_test.h"

struct ReadHandler {
    int (*call)(const char *name, char **value);
    const char *kind;  // as its log calls what it reads: "param"

    Outcome read(const char *name) const {
        return read_with(call, name);
    }
    std::string start_log(const std::string &name) const {
        return "!!!***platform/Z55/ak_model <N> ***!!!\n " + std::string(kind) + "_name=" + name + "\n , " +
               kind + "_length =" + std::to_string(name.size()) + "\n";
    }
};

inline void expect_value(const Outcome &outcome, const std::string &value) {
    EXPECT_EQ(outcome.text, value);
    EXPECT_EQ(outcome.result, static_cast<int>(value.size()));
}

inline void expect_error(const Outcome &outcome) {
    expect_value(outcome, "ERROR");
}

// `name`, which is read from the camera's `target`, without a camera.
inline void expect_unreachable(const ReadHandler &handler, const char *name, const std::string &target) {
    const Outcome outcome = handler.read(name);
    expect_error(outcome);
    EXPECT_LOG(outcome.log, handler.start_log(name) + "[GET " + target +
                                "]\n[failed]\nres !=CURLE_OK: platform/Z55/ak_model,line <N>\n");
    EXPECT_LOG(outcome.errors, std::string("curl failed : ") + curl_easy_strerror(CURLE_COULDNT_CONNECT) +
                                   "  (platform/Z55/ak_model, <N>)\n");
}

inline void expect_undefined(const ReadHandler &handler, const char *name) {
    const Outcome outcome = handler.read(name);
    expect_error(outcome);
    EXPECT_LOG(outcome.log, handler.start_log(name) + "get_device_param This parameter undefined\n");
    EXPECT_EQ(outcome.errors, "");
}

// A missing name, an overlong one, and nowhere to put the values of `names`.
inline void expect_unusable_input_is_refused(const ReadHandler &handler,
                                             const std::vector<const char *> &names) {
    expect_error(handler.read(nullptr));
    expect_undefined(handler, std::string(10'000, 'n').c_str());
    for (const char *name : names) {
        EXPECT_EQ(outcome_of([&] { return handler.call(name, nullptr); }).result, 5) << name;
    }
}

// Sixteen threads ask for these names, each `rounds` times: all get the value that belongs to their name.
inline void expect_own_answers(const ReadHandler &handler,
                               const std::vector<std::pair<const char *, std::string>> &values, int rounds) {
    std::atomic<int> wrong{0};
    const auto ask = [&](size_t number) {
        const auto &[name, expected] = values[number % values.size()];
        for (int round = 0; round < rounds; round++) {
            char *value = nullptr;
            handler.call(name, &value);
            if (value == nullptr || value != expected) wrong++;
            std::free(value);
        }
    };
    output_of([&] {
        std::vector<std::thread> threads;
        for (size_t i = 0; i < 16; i++) threads.emplace_back(ask, i);
        for (std::thread &thread : threads) thread.join();
    });
    EXPECT_EQ(wrong, 0);
}

#endif
