// The names that the client takes are those of the camera program.
#include <csignal>
#include <filesystem>

#include "desk_fixture.h"

namespace {

using nlohmann::json;

// The camera program itself, with its ports in /tmp.
class CameraProgram {
  public:
    CameraProgram() : child_(fork()) {
        if (child_ == 0) {
            execl(CAMERA, CAMERA, "--ports-file", "/tmp/camera.json", nullptr);
            _exit(127);
        }
        setenv("DESK_RUN", "/tmp", 1);
        while (!std::filesystem::exists("/tmp/camera.json") && kill(child_, 0) == 0)
            std::this_thread::yield();
    }
    CameraProgram(const CameraProgram &) = delete;
    CameraProgram &operator=(const CameraProgram &) = delete;

    ~CameraProgram() {
        if (child_ <= 0) return;
        kill(child_, SIGTERM);
        waitpid(child_, nullptr, 0);
    }

  private:
    pid_t child_;
};

std::string lines_of(const std::string &command) {
    return run_shell(DESK " complete " + command + " | LC_ALL=C sort").output;
}

std::string members_of(const char *member) {
    std::string names;
    const json members = json::parse(run_desk(std::string("camera state --json ") + member).output);
    for (const auto &[name, value] : members.items()) names += name + "\n";
    return names;
}

TEST(DeskNames, are_those_of_the_camera) {
    std::filesystem::remove("/tmp/camera.json");
    const CameraProgram camera;
    EXPECT_EQ(lines_of("camera set ''"), members_of("status"));
    EXPECT_EQ(lines_of("camera config ''"), members_of("config"));
    EXPECT_EQ(lines_of("camera setting ''"), members_of("settings"));
    for (const char *group : {"MOTION_DETECTION", "TEMPERATURE_ALERT"})
        EXPECT_EQ(lines_of(std::string("camera setting ") + group + " ''"),
                  members_of((std::string("settings ") + group).c_str()));
}

TEST(DeskNames, of_misbehaviour_are_taken_by_the_camera) {
    std::filesystem::remove("/tmp/camera.json");
    const CameraProgram camera;
    std::istringstream kinds(lines_of("camera fault CameraInfo ''"));
    for (std::string kind; kinds >> kind;) {
        const Outcome result = run_desk("camera fault CameraInfo " + kind);
        EXPECT_EQ(result.exit_code, 0) << kind << ": " << result.output;
    }
}

}  // namespace
