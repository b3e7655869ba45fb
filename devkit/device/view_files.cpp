#include "view_files.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace fs = std::filesystem;

namespace {

constexpr char kState[] = "/tmp/.device";
constexpr char kDropCaches[] = "/proc/sys/vm/drop_caches";

void mount_or_throw(const std::string &source, const std::string &target, const char *type,
                    unsigned long flags, const std::string &data, const std::string &purpose) {
    if (mount(source.c_str(), target.c_str(), type, flags, data.c_str()) != 0) {
        throw std::system_error(errno, std::generic_category(), purpose);
    }
}

void mount_tmpfs(const std::string &target, const std::string &data) {
    mount_or_throw("tmpfs", target, "tmpfs", MS_NOSUID | MS_NODEV, data, "cannot mount a tmpfs on " + target);
}

struct KeptFolder {
    std::string path;
    int descriptor;
};

// A folder below /tmp can be found again under the new /tmp only by a descriptor taken before.
std::vector<KeptFolder> hold_folders(const std::vector<std::string> &paths) {
    std::vector<KeptFolder> held;
    for (const std::string &path : paths) {
        if (path.rfind("/tmp/", 0) != 0) continue;
        const int descriptor = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (descriptor >= 0) held.push_back({path, descriptor});
    }
    return held;
}

void bind_back(const std::vector<KeptFolder> &held) {
    for (const KeptFolder &folder : held) {
        fs::create_directories(folder.path);
        mount_or_throw("/proc/self/fd/" + std::to_string(folder.descriptor), folder.path, nullptr,
                       MS_BIND | MS_REC, "", "cannot keep " + folder.path);
        close(folder.descriptor);
    }
}

void mount_tools(const FileOptions &options) {
    const fs::path overlay = fs::path(kState) / "overlay";
    const fs::path upper = overlay / "upper";
    fs::create_directories(upper);
    fs::create_directories(overlay / "work");
    fs::permissions(upper, fs::perms(0755));
    for (const auto &tool : fs::directory_iterator(options.tools_folder)) {
        fs::copy_file(tool.path(), upper / tool.path().filename());
    }
    for (const std::string &program : options.linked_programs) {
        fs::create_symlink(fs::path(options.programs_folder) / program, upper / program);
    }
    const std::string data =
        "lowerdir=/usr/bin,upperdir=" + upper.string() + ",workdir=" + (overlay / "work").string();
    // In a user namespace an overlay may keep its notes in user attributes only.
    if (mount("overlay", "/usr/bin", "overlay", 0, (data + ",userxattr").c_str()) == 0) return;
    mount_or_throw("overlay", "/usr/bin", "overlay", 0, data, "cannot lay the device tools over /usr/bin");
}

void mount_proc() {
    mount_or_throw("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, "", "cannot mount /proc");
    const std::string stand_in = std::string(kState) + "/drop_caches";
    std::ofstream(stand_in).flush();
    mount_or_throw(stand_in, kDropCaches, nullptr, MS_BIND, "", std::string("cannot cover ") + kDropCaches);
}

}  // namespace

void mount_view(const FileOptions &options) {
    mount_or_throw("none", "/", nullptr, MS_REC | MS_PRIVATE, "", "cannot make the mounts private");
    const std::vector<KeptFolder> held = hold_folders(options.kept_folders);
    mount_tmpfs("/tmp", "mode=1777");
    bind_back(held);
    fs::create_directories("/tmp/working");
    fs::create_directories(kState);
    fs::create_directories("/tmp/fuse_d");
    mount_tmpfs("/tmp/fuse_d", "mode=0755,size=" + std::to_string(options.sd_megabytes) + "m");
    fs::create_directories("/tmp/fuse_d/DCIM/100MEDIA");
    mount_tools(options);
    mount_proc();
}
