#include "reserve_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

#include "../agent/utils/os.h"
#include "../device.h"
#include "../log_sources.h"

namespace {

constexpr char kReserveFile[] = "/tmp/fuse_d/.ota.tmp";
constexpr char kFill[] = "/bin/dd if=/dev/zero of=/tmp/fuse_d/.ota.tmp bs=1024000 count=100";
constexpr int kFillSeconds = 600;
// By the shell, which has a limit: where the card does not answer, an unlink would never return.
constexpr char kRemove[] = "rm -f /tmp/fuse_d/.ota.tmp";

constinit std::atomic<bool> lent = false;

mode_t kind_of(const char *path) {
    struct stat found {};
    return lstat(path, &found) == 0 ? found.st_mode & S_IFMT : 0;
}

// A link or a FIFO is nobody's reserve, and behind a linked folder there is none; a folder can be opened like
// a file.
bool reserve_stands() {
    const mode_t kind = kind_of(kReserveFile);
    return kind_of(kCardFolder) == S_IFDIR && (kind == S_IFREG || kind == S_IFDIR);
}

// Without a card its folder lies in /tmp, which is memory.
bool card_is_mounted() {
    struct stat card {};
    struct stat memory {};
    return lstat(kCardFolder, &card) == 0 && S_ISDIR(card.st_mode) && lstat("/tmp", &memory) == 0 &&
           card.st_dev != memory.st_dev;
}

// Puts an empty file of our own there, so that dd writes into nothing that others have put in its place.
bool claim_place() {
    if (!reserve_stands()) unlink(kReserveFile);
    const int file = open(kReserveFile, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (file >= 0) close(file);
    return file >= 0;
}

bool fill_reserve() {
    if (lent || !card_is_mounted() || !claim_place()) return false;
    const int status = run_shell(kFill, kFillSeconds);
    if (status == 0 && !lent) return true;
    (void)run_shell(kRemove);  // the card that refuses it has no reserve for anybody
    return false;
}

}  // namespace

int dummyFileCreator() {
    std::printf("!!!***%s %d ***!!! dummyFileCreator function \n", kModelSource, __LINE__);
    if (reserve_stands()) {
        std::puts("file exist!!");
        return -1;
    }
    std::puts("create start");
    const bool filled = fill_reserve();
    std::puts("create file end");
    std::puts(filled ? "create file success" : "create file failure");
    return filled ? 0 : -1;
}

int deleteDummyFile() {
    std::printf("!!!***%s %d ***!!! deleteDummyFile function \n", kModelSource, __LINE__);
    if (!reserve_stands()) {
        std::printf("Error:  file not found! check the directory!!\n");
        return -1;
    }
    if (unlink(kReserveFile) != 0) {
        const int error = errno;
        std::puts("Unable to delete the file");
        errno = error;  // a log that cannot be written has left another
        std::perror("Error");
        return -1;
    }
    lent = true;
    std::printf("%s file deleted successfully.\n", kReserveFile);
    return 0;
}

int restore_reserve() {
    lent = false;
    return dummyFileCreator();
}
