// The file systems of the device view: /tmp, the SD card, the device tools over /usr/bin, /proc. Linux mounts
// only; all of it belongs to the mount namespace of the caller and goes with it. Failures throw
// std::system_error.
#ifndef DEVKIT_DEVICE_VIEW_FILES_H
#define DEVKIT_DEVICE_VIEW_FILES_H

#include <string>
#include <vector>

struct FileOptions {
    long sd_megabytes = 512;
    std::vector<std::string> kept_folders;  // absolute; those under /tmp stay reachable at their path
    std::string tools_folder;               // each file in it becomes a file of /usr/bin
    std::string programs_folder;  // each executable named in `linked_programs` is linked into /usr/bin
    std::vector<std::string> linked_programs;
};

// Builds the view. To be called by process 1 of a new PID namespace, inside a new mount namespace.
void mount_view(const FileOptions &options);

#endif
