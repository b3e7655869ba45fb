#include "reserve_file.h"

#include <unistd.h>

#include <cstdio>

#include "../agent/utils/os.h"
#include "handler_value.h"

namespace {

constexpr char kReserveFile[] = "/tmp/fuse_d/.ota.tmp";

bool file_exists(const char *path) {
    FILE *file = std::fopen(path, "re");
    if (file != nullptr) std::fclose(file);
    return file != nullptr;
}

}  // namespace

int dummyFileCreator() {
    std::printf("!!!***%s %d ***!!! dummyFileCreator function \n", kModelSource, __LINE__);
    if (file_exists(kReserveFile)) {
        std::puts("file exist!!");
        return -1;
    }
    std::puts("create start");
    const int status = run_shell("/bin/dd if=/dev/zero of=/tmp/fuse_d/.ota.tmp bs=1024000 count=100");
    std::puts("create file end");
    std::puts(status == 0 ? "create file success" : "create file failure");
    return status == 0 ? 0 : -1;
}

int deleteDummyFile() {
    std::printf("!!!***%s %d ***!!! deleteDummyFile function \n", kModelSource, __LINE__);
    if (!file_exists(kReserveFile)) {
        std::printf("Error:  file not found! check the directory!!\n");
        return -1;
    }
    if (unlink(kReserveFile) != 0) {
        std::puts("Unable to delete the file");
        std::perror("Error");
        return -1;
    }
    std::printf("%s file deleted successfully.\n", kReserveFile);
    return 0;
}
