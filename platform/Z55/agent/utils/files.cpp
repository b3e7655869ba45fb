#include "files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// Behind the path of what it becomes: nobody else's name, so that one left by a power cut can be taken for
// what it is.
constexpr char kNewFileSuffix[] = ".veloagent-new";

// A descriptor that closes itself and leaves errno alone.
class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ < 0) return;
        const int error = errno;
        close(number_);
        errno = error;
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    operator int() const {
        return number_;
    }
    void release() {
        number_ = -1;
    }

  private:
    int number_;
};

bool is_regular(int file) {
    struct stat kind {};
    if (fstat(file, &kind) != 0) return false;
    errno = EINVAL;
    return S_ISREG(kind.st_mode);
}

// Opened without blocking, so that a FIFO is seen before it is waited for; on a regular file that changes
// nothing.
File open_stream(const char *path, int flags, const char *mode) {
    Descriptor file(open(path, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666));
    if (file < 0 || !is_regular(file)) return nullptr;
    File stream(fdopen(file, mode));
    if (stream) file.release();
    return stream;
}

// What a file in the way is like is its finder's to judge; what the system is short of is nobody else's to
// tell.
bool is_shortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == EIO;
}

void tell_unread(const char *path) {
    const int error = errno;
    std::printf("file not read, %s:%s\n", path, std::strerror(error));
    errno = error;
}

// Some file systems have nothing to sync and say so.
bool synced(int file) {
    return fsync(file) == 0 || errno == EINVAL;
}

bool write_all(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = write(file, text.data(), text.size());
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) text.remove_prefix(static_cast<size_t>(count));
    }
    return synced(file);
}

// A name that is not in the folder's own record is lost with the power.
void sync_folder_of(const std::string &path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor >= 0) fsync(descriptor);
}

bool set_owner_and_mode(int file, const struct stat &wanted) {
    struct stat now {};
    if (fstat(file, &now) != 0) return false;
    const bool owned = now.st_uid == wanted.st_uid && now.st_gid == wanted.st_gid;
    if (!owned && fchown(file, wanted.st_uid, wanted.st_gid) != 0) return false;
    const mode_t mode = wanted.st_mode & 07777;
    return (owned && (now.st_mode & 07777) == mode) || fchmod(file, mode) == 0;
}

enum class Replaced { done, not_possible, failed };

int create(const std::string &path, mode_t mode) {
    return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
}

// In the place of what a power cut has left there.
int create_anew(const std::string &path, mode_t mode) {
    const int file = create(path, mode);
    if (file >= 0 || errno != EEXIST) return file;
    unlink(path.c_str());
    return create(path, mode);
}

Replaced replace_by_rename(const std::string &path, std::string_view text, mode_t mode,
                           const struct stat *like) {
    const std::string beside = path + kNewFileSuffix;
    const Descriptor file(create_anew(beside, like != nullptr ? like->st_mode & 07777 : mode));
    // Where somebody keeps a thing of that name there, nothing is written: the file itself may be his as
    // well.
    if (file < 0) return errno == EEXIST ? Replaced::failed : Replaced::not_possible;
    Replaced result = Replaced::not_possible;
    if (like == nullptr || set_owner_and_mode(file, *like)) {
        if (!write_all(file, text)) {
            result = Replaced::failed;
        } else if (std::rename(beside.c_str(), path.c_str()) == 0) {
            sync_folder_of(path);
            return Replaced::done;
        }
    }
    const int error = errno;
    unlink(beside.c_str());
    errno = error;
    return result;
}

// Whether the file is ours alone: no other user's, and no second name of one of ours. Others' rights beyond
// `mode` are taken away, as far as its file system knows any.
bool claim(int file, mode_t mode) {
    struct stat now {};
    if (fstat(file, &now) != 0) return false;
    errno = EPERM;
    if (now.st_uid != geteuid() || now.st_nlink != 1) return false;
    if ((now.st_mode & 0777 & ~mode) != 0) fchmod(file, now.st_mode & mode);
    return true;
}

// The length is set last: what a full disk refuses must not cost what is there already.
bool overwrite(const std::string &path, std::string_view text, mode_t mode, bool whoever_owns_it) {
    const Descriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, mode));
    if (file < 0 || !is_regular(file) || !(whoever_owns_it || claim(file, mode))) return false;
    if (!write_all(file, text)) return false;
    return ftruncate(file, static_cast<off_t>(text.size())) == 0 && synced(file);
}

}  // namespace

File open_regular(const char *path) {
    File file = open_stream(path, O_RDONLY, "r");
    if (!file && is_shortage(errno)) tell_unread(path);
    return file;
}

std::optional<std::string> read_stream(FILE *file, const char *path, size_t longest) {
    std::string text;
    char piece[1024];
    while (const size_t count = std::fread(piece, 1, std::min(sizeof piece, longest - text.size()), file))
        text.append(piece, count);
    if (std::ferror(file) == 0) return text;
    tell_unread(path);
    return std::nullopt;
}

File open_to_append(const char *path) {
    File file = open_stream(path, O_WRONLY | O_CREAT | O_APPEND, "a");
    struct stat opened {};
    if (file && fstat(fileno(file.get()), &opened) == 0 && opened.st_size == 0) sync_folder_of(path);
    return file;
}

bool close_synced(File file) {
    const bool written =
        std::fflush(file.get()) == 0 && std::ferror(file.get()) == 0 && synced(fileno(file.get()));
    const int error = errno;
    file.reset();
    errno = error;
    return written;
}

bool replace_file(const std::string &path, std::string_view text, mode_t mode, const struct stat *like) {
    const Replaced replaced = replace_by_rename(path, text, mode, like);
    return replaced == Replaced::done ||
           (replaced == Replaced::not_possible && overwrite(path, text, mode, like != nullptr));
}

bool remove_file(const std::string &path) {
    if (unlink(path.c_str()) != 0) return false;
    sync_folder_of(path);
    return true;
}
