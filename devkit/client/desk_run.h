// Where a running desk can be reached: the folder with the ports files of camera, SDK and console, and the
// requests to them.
#ifndef DEVKIT_CLIENT_DESK_RUN_H
#define DEVKIT_CLIENT_DESK_RUN_H

#include <nlohmann/json.hpp>
#include <string>

enum class Side { camera, sdk, console };

// A mistake of the user or an error reply; `what()` is all that is to be printed.
class DeskError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The folder: DESK_RUN, or the one that ./run uses.
std::string run_folder();

// Sends one request and waits for the reply as long as it takes (an hour at most). Returns the body of a 2xx
// reply; throws desk_error for any other and when nobody answers.
std::string request(Side to, const std::string &method, const std::string &path, const std::string &body);

// The same with the reply parsed; a reply that is no JSON throws.
nlohmann::json request_json(Side to, const std::string &method, const std::string &path,
                            const nlohmann::json &body = nullptr);

// The path under which a file of the device can be opened from here.
std::string device_path(const std::string &path);

#endif
