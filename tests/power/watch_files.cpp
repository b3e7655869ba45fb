// A preload for the agent: notes what it does to the files it keeps, in the order in which it is done, and
// can end the process within one of these calls (README.md in this folder). Any thread; one lock is held
// across each noted call, so that the journal has the order in which the disk saw them.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#define EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

constexpr char kJournal[] = "POWER_JOURNAL";  // the journal's path
constexpr char kFiles[] = "POWER_FILES";      // beginnings of the paths that count, with ":" between them
// A file whose writes are noted, and no more: it is not the agent's.
constexpr char kWitness[] = "POWER_WITNESS";
// "N before|within|after PERMILLE": the process ends in its Nth call that counts, a write after so many of
// its bytes.
constexpr char kKill[] = "POWER_KILL";

constexpr size_t kLongestLine = 4 * PATH_MAX;

pthread_mutex_t order = PTHREAD_MUTEX_INITIALIZER;

bool begins_with_one_of(const char *path, const char *list) {
    while (list != nullptr && *list != '\0') {
        const size_t length = strcspn(list, ":");
        if (length > 0 && strncmp(path, list, length) == 0) return true;
        list += length + (list[length] == ':' ? 1 : 0);
    }
    return false;
}

bool is_witness(const char *path) {
    const char *witness = getenv(kWitness);
    return witness != nullptr && strcmp(path, witness) == 0;
}

bool counts(const char *path) {
    return path != nullptr && begins_with_one_of(path, getenv(kFiles));
}

bool is_noted(const char *path) {
    return path != nullptr && (counts(path) || is_witness(path));
}

// The path that a descriptor was opened by, or has been renamed to. Nothing is kept by descriptor: a child
// that closes what it inherited may share our memory.
bool path_of(int file, char (&path)[PATH_MAX]) {
    char link[64];
    snprintf(link, sizeof link, "/proc/self/fd/%d", file);
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link, path, sizeof path - 1);
    path[length > 0 ? length : 0] = '\0';
    return length > 0;
}

bool noted_file(int file, char (&path)[PATH_MAX]) {
    if (getenv(kJournal) == nullptr || !path_of(file, path) || path[0] != '/') return false;
    return is_noted(path);
}

int journal_file() {
    static const int file = static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, getenv(kJournal), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
    return file;
}

// One record: a line of fields, behind it so many bytes of data. A single write: whoever else adds records
// does not mix with it.
void note(const char *data, size_t length, const char *format, ...) {
    char line[kLongestLine];
    va_list arguments;
    va_start(arguments, format);
    const int head = vsnprintf(line, sizeof line - 40, format, arguments);
    va_end(arguments);
    const int tail = snprintf(line + head, 40, "\t%zu\n", length);
    iovec parts[] = {{line, static_cast<size_t>(head + tail)},
                     {const_cast<char *>(data), length},
                     {const_cast<char *>("\n"), 1}};
    syscall(SYS_writev, journal_file(), parts, 3);
}

// A file's number, unlike that of a file on any other file system.
unsigned long long number_of(int file) {
    struct stat found {};
    if (fstat(file, &found) != 0) return 0;
    return (static_cast<unsigned long long>(found.st_dev) << 32) + found.st_ino;
}

// When the process is to end, in calls of noted files.
struct End {
    long at = 0, permille = 0;  // of a write's bytes
    char where = 'n';

    End() {
        const char *text = getenv(kKill);
        if (text == nullptr) return;
        char *rest = nullptr;
        at = strtol(text, &rest, 10);
        where = rest[0] == ' ' ? rest[1] : 'n';
        const char *last = strrchr(text, ' ');
        permille = last != nullptr ? strtol(last, nullptr, 10) : 0;
    }
};

const End &end() {
    static const End found;
    return found;
}

// A call that counts: holds the lock, and ends the process where that is due.
class Call {
  public:
    Call(const char *kind, const char *path, bool counted = true) : kind_(kind), path_(path) {
        pthread_mutex_lock(&order);
        if (!counted) return;
        static long number = 0;  // under the lock
        if (++number == end().at) where_ = end().where;
        if (where_ == 'b') die("before");
    }
    ~Call() {
        if (where_ == 'a') die("after");
        const int error = errno;
        pthread_mutex_unlock(&order);
        errno = error;
    }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;

    // How much of a write is done before the process ends in it.
    size_t part_of(size_t length) const {
        return where_ == 'w' ? length * static_cast<size_t>(end().permille) / 1000 : length;
    }
    // Ends the process where it is to end within this call.
    void pass_middle() const {
        if (where_ == 'w') die("within");
    }

  private:
    [[noreturn]] void die(const char *where) const {
        note(nullptr, 0, "killed\t%s\t%s\t%s", where, kind_, path_);
        for (;;) syscall(SYS_kill, getpid(), SIGKILL);
    }

    char where_ = 'n';
    const char *kind_, *path_;
};

int open_noted(const char *path, int flags, mode_t mode) {
    const Call call("open", path, counts(path) && (flags & O_CREAT) != 0);
    struct stat before {};
    const bool existed = lstat(path, &before) == 0;
    call.pass_middle();
    const int file = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    if (file < 0) return file;
    char real[PATH_MAX];
    const bool known = path_of(file, real);
    if (!existed && (flags & O_CREAT) != 0)
        note(nullptr, 0, "create\t%s\t%llu", known ? real : path, number_of(file));
    else if ((flags & O_TRUNC) != 0)
        note(nullptr, 0, "truncate\t%s\t%llu\t0", known ? real : path, number_of(file));
    return file;
}

int open_any(const char *path, int flags, mode_t mode) {
    const bool writes = (flags & O_ACCMODE) != O_RDONLY;
    if (writes && getenv(kJournal) != nullptr && is_noted(path)) return open_noted(path, flags, mode);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

mode_t mode_argument(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

long long position(int file) {
    struct stat found {};
    if ((fcntl(file, F_GETFL) & O_APPEND) != 0)
        return fstat(file, &found) == 0 ? static_cast<long long>(found.st_size) : 0;
    return static_cast<long long>(syscall(SYS_lseek, file, 0L, SEEK_CUR));
}

ssize_t write_noted(int file, const char *path, const void *data, size_t length) {
    const Call call("write", path, !is_witness(path));
    const long long offset = position(file);
    const ssize_t written = syscall(SYS_write, file, data, call.part_of(length));
    if (written > 0)
        note(static_cast<const char *>(data), static_cast<size_t>(written), "write\t%s\t%llu\t%lld", path,
             number_of(file), offset);
    call.pass_middle();
    return written;
}

// A stream's own writes do not come by here: a stream of a noted file hands its bytes to these.
ssize_t stream_write(void *cookie, const char *data, size_t length) {
    const ssize_t written = write(static_cast<int>(reinterpret_cast<intptr_t>(cookie)), data, length);
    return written < 0 ? 0 : written;  // so fopencookie is told of an error
}
ssize_t stream_read(void *cookie, char *data, size_t length) {
    return read(static_cast<int>(reinterpret_cast<intptr_t>(cookie)), data, length);
}
int stream_seek(void *cookie, off64_t *offset, int whence) {
    const off64_t found = lseek64(static_cast<int>(reinterpret_cast<intptr_t>(cookie)), *offset, whence);
    if (found < 0) return -1;
    *offset = found;
    return 0;
}
int stream_close(void *cookie) {
    return close(static_cast<int>(reinterpret_cast<intptr_t>(cookie)));
}

// Streams of noted files that are open, with their descriptors.
constexpr int kStreams = 64;
struct {
    FILE *stream;
    int file;
} streams[kStreams];
pthread_mutex_t streams_lock = PTHREAD_MUTEX_INITIALIZER;

FILE *stream_of(int file, const char *mode) {
    FILE *stream = fopencookie(reinterpret_cast<void *>(static_cast<intptr_t>(file)), mode,
                               {stream_read, stream_write, stream_seek, stream_close});
    if (stream == nullptr) return nullptr;
    pthread_mutex_lock(&streams_lock);
    int place = 0;
    for (int i = 0; i < kStreams; i++) {
        if (streams[i].stream == stream || streams[i].stream == nullptr) place = i;
        if (streams[i].stream == stream) break;
    }
    streams[place] = {stream, file};
    pthread_mutex_unlock(&streams_lock);
    return stream;
}

int descriptor_of(FILE *stream) {
    int found = -1;
    pthread_mutex_lock(&streams_lock);
    for (const auto &known : streams) {
        if (known.stream == stream) found = known.file;
    }
    pthread_mutex_unlock(&streams_lock);
    return found;
}

int flags_of(const char *mode) {
    const bool both = strchr(mode, '+') != nullptr;
    const int access = both ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    const int kind = mode[0] == 'w' ? O_CREAT | O_TRUNC : mode[0] == 'a' ? O_CREAT | O_APPEND : 0;
    return access | kind | (strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0);
}

template <typename Function>
Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

FILE *open_stream(const char *path, const char *mode) {
    if (getenv(kJournal) == nullptr || mode[0] == 'r' || !is_noted(path)) {
        static auto *const real = next<FILE *(const char *, const char *)>("fopen");
        return real(path, mode);
    }
    const int file = open_noted(path, flags_of(mode), 0666);
    return file < 0 ? nullptr : stream_of(file, mode);
}

// fsync and fdatasync: the same to us, but for a folder, whose names become durable.
int sync_noted(int file, long number) {
    char path[PATH_MAX];
    struct stat found {};
    const bool folder = fstat(file, &found) == 0 && S_ISDIR(found.st_mode);
    const bool noted = getenv(kJournal) != nullptr && path_of(file, path) && (folder || counts(path));
    if (!noted) return static_cast<int>(syscall(number, file));
    const Call call("fsync", path);
    call.pass_middle();
    const int result = static_cast<int>(syscall(number, file));
    if (result == 0) note(nullptr, 0, "%s\t%s\t%llu", folder ? "fsyncdir" : "fsync", path, number_of(file));
    return result;
}

int truncate_noted(int file, off64_t length) {
    char path[PATH_MAX];
    if (!noted_file(file, path)) return static_cast<int>(syscall(SYS_ftruncate, file, length));
    const Call call("ftruncate", path);
    call.pass_middle();
    const int result = static_cast<int>(syscall(SYS_ftruncate, file, length));
    if (result == 0)
        note(nullptr, 0, "truncate\t%s\t%llu\t%lld", path, number_of(file), static_cast<long long>(length));
    return result;
}

}  // namespace

EXPORTED int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_argument(flags, arguments);
    va_end(arguments);
    return open_any(path, flags, mode);
}

EXPORTED int open64(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_argument(flags, arguments);
    va_end(arguments);
    return open_any(path, flags, mode);
}

EXPORTED int creat(const char *path, mode_t mode) {
    return open_any(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
}

EXPORTED ssize_t write(int file, const void *data, size_t length) {
    char path[PATH_MAX];
    if (!noted_file(file, path)) return syscall(SYS_write, file, data, length);
    return write_noted(file, path, data, length);
}

EXPORTED int ftruncate(int file, off_t length) {
    return truncate_noted(file, length);
}
EXPORTED int ftruncate64(int file, off64_t length) {
    return truncate_noted(file, length);
}

EXPORTED int fsync(int file) {
    return sync_noted(file, SYS_fsync);
}
EXPORTED int fdatasync(int file) {
    return sync_noted(file, SYS_fdatasync);
}

EXPORTED int rename(const char *from, const char *to) {
    const auto act = [&] { return static_cast<int>(syscall(SYS_renameat, AT_FDCWD, from, AT_FDCWD, to)); };
    if (getenv(kJournal) == nullptr || (!counts(from) && !counts(to))) return act();
    const Call call("rename", to);
    call.pass_middle();
    const int result = act();
    if (result == 0) note(nullptr, 0, "rename\t%s\t%s", from, to);
    return result;
}

EXPORTED int link(const char *from, const char *to) {
    const auto act = [&] { return static_cast<int>(syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0)); };
    if (getenv(kJournal) == nullptr || !counts(to)) return act();
    const Call call("link", to);
    call.pass_middle();
    const int result = act();
    if (result == 0) note(nullptr, 0, "link\t%s\t%s", from, to);
    return result;
}

EXPORTED int unlink(const char *path) {
    const auto act = [&] { return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0)); };
    if (getenv(kJournal) == nullptr || !counts(path)) return act();
    struct stat found {};
    if (lstat(path, &found) != 0) return act();  // nothing to lose
    const Call call("unlink", path);
    call.pass_middle();
    const int result = act();
    if (result == 0) note(nullptr, 0, "unlink\t%s", path);
    return result;
}

EXPORTED int remove(const char *path) {
    static auto *const real = next<int(const char *)>("remove");
    return counts(path) ? unlink(path) : real(path);
}

EXPORTED FILE *fopen(const char *path, const char *mode) {
    return open_stream(path, mode);
}
EXPORTED FILE *fopen64(const char *path, const char *mode) {
    return open_stream(path, mode);
}

EXPORTED FILE *fdopen(int file, const char *mode) {
    char path[PATH_MAX];
    if (mode[0] != 'r' && noted_file(file, path)) return stream_of(file, mode);
    static auto *const real = next<FILE *(int, const char *)>("fdopen");
    return real(file, mode);
}

EXPORTED int fileno(FILE *stream) {
    static auto *const real = next<int(FILE *)>("fileno");
    const int file = real(stream);
    return file >= 0 ? file : descriptor_of(stream);
}
