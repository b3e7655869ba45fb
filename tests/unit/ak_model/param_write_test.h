// What the tests of set_device_param share: the call, the texts around it, the documents, a configuration
// that holds every key that it writes.
#ifndef UNIT_AK_MODEL_PARAM_WRITE_TEST_H
#define UNIT_AK_MODEL_PARAM_WRITE_TEST_H

#include <string>

#include "handler_test.h"

#define MOTION(enable, sensitivity)                                                       \
    "<CameraSetup><MOTION_DETECTION><ENABLE>" enable "</ENABLE><SENSITIVITY>" sensitivity \
    "</SENSITIVITY></MOTION_DETECTION></CameraSetup>"
#define AUDIO(enable, sensitivity)                                                       \
    "<CameraSetup><AUDIO_DETECTION><ENABLE>" enable "</ENABLE><SENSITIVITY>" sensitivity \
    "</SENSITIVITY></AUDIO_DETECTION></CameraSetup>"
#define TEMPERATURE(enable, max, min)                                                        \
    "<CameraSetup><TEMPERATURE_ALERT><ENABLE>" enable "</ENABLE><MAX>" max "</MAX><MIN>" min \
    "</MIN></TEMPERATURE_ALERT></CameraSetup>"

inline constexpr char kArmedConf[] =
    "BATTERY_ARMED=x\nNIMB_ARMED=x\nSDCARD_ARMED=x\nBATTERY_LOW=x\nNIMB_LOW=x\nSDCARD_LOW=x\n";

inline Outcome set(const char *name, const char *value, int length = 1) {
    return outcome_of([&] { return set_device_param(name, value, length); });
}

inline std::string start_log(const std::string &name, const std::string &value, int length = 1) {
    return "!!!***platform/Z55/ak_model <N> ***!!! param_name=" + name + "\nparam_name=" + name +
           " param_value=" + value + " valuelen=" + std::to_string(length) + "\n";
}

inline std::string post_log(const std::string &document) {
    return "before POST , cmdLength =" + std::to_string(document.size()) + "\ncommandInstr = " + document +
           "\n[POST CameraSetup]\n";
}

inline std::string trace(const std::string &text) {
    return text + ", ---platform/Z55/ak_model,line <N>\n";
}

class ParamWrite : public HandlerTest {
  protected:
    // The whole file of the configuration that holds `key` = `value` and "x" for the other alarm keys.
    static std::string conf_with(const std::string &key, const std::string &value) {
        std::string text = kArmedConf;
        const size_t at = text.find(key + "=") + key.size() + 1;
        return text.replace(at, 1, value);
    }
    void SetUp() override {
        HandlerTest::SetUp();
        write_file("/tmp/working/VeloAgent.conf", kArmedConf);
    }
    // What every parameter that posts an empty command looks like.
    void expect_empty_command(const Outcome &outcome, const std::string &log_before) {
        EXPECT_EQ(outcome.result, 0);
        EXPECT_LOG(outcome.log, log_before + post_log(""));
        EXPECT_EQ(camera.seen(), Texts{setup_request("")});
        EXPECT_EQ(camera.requests().at(0).body,
                  "HTTP/1.1\nContent-Length: 0\nContent-Type: application/x-www-form-urlencoded\n\r\n\r\n");
        EXPECT_EQ(conf_text(), kArmedConf);
    }
};

#endif
