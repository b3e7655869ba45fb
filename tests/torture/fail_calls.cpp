// A preload for the agent: counts the calls of each kind that the agent makes while it is armed, and makes
// the n-th of one kind fail, or all from the n-th on. The agent's are those that its executable makes and
// those that libcurl makes for it, directly or inside other libraries; what the stand-ins of the vendor's
// libraries do in the same process is theirs. Children are left alone. Any thread; nothing here blocks.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <semaphore.h>
#include <spawn.h>
#include <stdio_ext.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>
#include <unwind.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "fail_file.h"

namespace {

constexpr int kErrorSeen = 0x20;  // in glibc's flags of a stream: what ferror asks for

FailFile *shared = nullptr;
pid_t own_pid = 0;

// Whose a call is that comes from an object. The others' (the C and the C++ library, OpenSSL ...) are their
// callers'.
enum class Whose { callers, agents, vendors };

struct Object {
    std::uintptr_t begin, end;
    Whose whose;
};
Object objects[128];
int object_count = 0;

bool begins_with(const char *text, const char *prefix) {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

Whose owner(const char *path) {
    if (path[0] == '\0') return Whose::agents;
    const char *slash = std::strrchr(path, '/');
    const char *name = slash != nullptr ? slash + 1 : path;
    if (begins_with(name, "libcurl")) return Whose::agents;
    for (const char *vendors : {"libvq_ipca.", "libef.", "libusock."}) {
        if (begins_with(name, vendors)) return Whose::vendors;
    }
    return Whose::callers;
}

int remember_object(dl_phdr_info *info, size_t, void *) {
    for (int i = 0; i < info->dlpi_phnum; i++) {
        const auto &part = info->dlpi_phdr[i];
        if (part.p_type != PT_LOAD || (part.p_flags & PF_X) == 0 || object_count == std::ssize(objects))
            continue;
        const std::uintptr_t begin = info->dlpi_addr + part.p_vaddr;
        objects[object_count++] = {begin, begin + part.p_memsz, owner(info->dlpi_name)};
    }
    return 0;
}

Whose owner_of(std::uintptr_t place) {
    for (int i = 0; i < object_count; i++) {
        if (place >= objects[i].begin && place < objects[i].end) return objects[i].whose;
    }
    return Whose::callers;
}

// Set while this thread is in here: what it calls then is nobody's.
__attribute__((tls_model("initial-exec"))) thread_local bool inside = false;

class Inside {
  public:
    Inside() {
        inside = true;
    }
    ~Inside() {
        inside = false;
    }
};

_Unwind_Reason_Code look_at_frame(_Unwind_Context *context, void *found) {
    const Whose whose = owner_of(_Unwind_GetIP(context) - 1);
    if (whose == Whose::callers) return _URC_NO_REASON;
    *static_cast<Whose *>(found) = whose;
    return _URC_END_OF_STACK;
}

bool is_agents() {
    Whose whose = Whose::callers;
    _Unwind_Backtrace(look_at_frame, &whose);
    return whose == Whose::agents;
}

_Unwind_Reason_Code trace_frame(_Unwind_Context *context, void *length) {
    size_t &used = *static_cast<size_t *>(length);
    const std::uintptr_t place = _Unwind_GetIP(context) - 1;
    Dl_info info{};
    if (dladdr(reinterpret_cast<void *>(place), &info) == 0 || info.dli_fname == nullptr)
        return _URC_NO_REASON;
    const std::uintptr_t base = reinterpret_cast<std::uintptr_t>(info.dli_fbase);
    const int written = std::snprintf(shared->trace + used, sizeof shared->trace - used, "%s+0x%lx ",
                                      info.dli_fname, static_cast<unsigned long>(place - base));
    used = std::min(used + static_cast<size_t>(written), sizeof shared->trace - 1);
    return _URC_NO_REASON;
}

void trace(size_t size) {
    __atomic_store_n(&shared->size, size, __ATOMIC_RELAXED);
    if (__atomic_fetch_add(&shared->failed, 1, __ATOMIC_ACQ_REL) != 0) return;
    size_t length = 0;
    _Unwind_Backtrace(trace_frame, &length);
    __atomic_store_n(&shared->traced, 1, __ATOMIC_RELEASE);
}

// Counts the call, where it is the agent's and counted at all. Whether it is to fail.
bool fails(Kind kind, size_t size = 0) {
    if (shared == nullptr || inside || __atomic_load_n(&shared->armed, __ATOMIC_ACQUIRE) == 0) return false;
    const Inside here;
    const int error = errno;
    bool due = false;
    if ((kind == kAlloc || getpid() == own_pid) && is_agents()) {
        const auto number =
            static_cast<std::int64_t>(__atomic_add_fetch(&shared->counts[kind], 1, __ATOMIC_ACQ_REL));
        due = shared->nth != 0 && shared->kind == kind &&
              (shared->from_then_on != 0 ? number >= shared->nth : number == shared->nth);
    }
    if (due) trace(size);
    errno = error;
    return due;
}

bool fails_with(Kind kind, int error) {
    if (!fails(kind)) return false;
    errno = error;
    return true;
}

template <typename Function>
class Next {
  public:
    constexpr explicit Next(const char *name) : name_(name) {}
    Function *get() {
        void *known = __atomic_load_n(&function_, __ATOMIC_ACQUIRE);
        if (known == nullptr) {
            const bool before = inside;
            inside = true;
            known = dlsym(RTLD_NEXT, name_);
            inside = before;
            __atomic_store_n(&function_, known, __ATOMIC_RELEASE);
        }
        return reinterpret_cast<Function *>(known);
    }

  private:
    const char *name_;
    void *function_ = nullptr;
};

__attribute__((constructor)) void prepare() {
    const char *path = std::getenv("FAIL_FILE");
    if (path == nullptr) return;
    dl_iterate_phdr(remember_object, nullptr);
    own_pid = getpid();
    const int file = open(path, O_RDWR | O_CLOEXEC);
    void *map =
        file >= 0 ? mmap(nullptr, sizeof(FailFile), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0) : MAP_FAILED;
    if (file >= 0) close(file);
    is_agents();  // the unwinder prepares itself
    if (map != MAP_FAILED) shared = static_cast<FailFile *>(map);
}

}  // namespace

// `ours` where the call fails, else what the next one says.
#define NEXT(function)                               \
    static constinit Next<decltype(function)> next { \
#function                                    \
    }

extern "C" {

// --- Allocations

void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);

void *malloc(size_t size) {
    if (!fails(kAlloc, size)) return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}

void *calloc(size_t count, size_t size) {
    if (!fails(kAlloc, count * size)) return __libc_calloc(count, size);
    errno = ENOMEM;
    return nullptr;
}

void *realloc(void *block, size_t size) {
    if (size == 0 || !fails(kAlloc, size)) return __libc_realloc(block, size);
    errno = ENOMEM;
    return nullptr;
}

// --- Files

#define OPENS(name)                                                                        \
    int name(const char *path, int flags, ...) {                                           \
        NEXT(name);                                                                        \
        va_list arguments;                                                                 \
        va_start(arguments, flags);                                                        \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : mode_t{}; \
        va_end(arguments);                                                                 \
        return fails_with(kOpen, EMFILE) ? -1 : next.get()(path, flags, mode);             \
    }
OPENS(open)
OPENS(open64)

int __open_2(const char *path, int flags) {
    return open(path, flags);
}
int __open64_2(const char *path, int flags) {
    return open64(path, flags);
}

FILE *fopen(const char *path, const char *mode) {
    NEXT(fopen);
    return fails_with(kOpen, EMFILE) ? nullptr : next.get()(path, mode);
}
FILE *fopen64(const char *path, const char *mode) {
    NEXT(fopen64);
    return fails_with(kOpen, EMFILE) ? nullptr : next.get()(path, mode);
}
DIR *opendir(const char *path) {
    NEXT(opendir);
    return fails_with(kOpen, EMFILE) ? nullptr : next.get()(path);
}

ssize_t read(int file, void *out, size_t size) {
    NEXT(read);
    return fails_with(kRead, EIO) ? -1 : next.get()(file, out, size);
}
ssize_t __read_chk(int file, void *out, size_t size, size_t room) {
    if (room < size) abort();
    return read(file, out, size);
}
size_t fread(void *out, size_t size, size_t count, FILE *file) {
    NEXT(fread);
    if (!fails_with(kRead, EIO)) return next.get()(out, size, count, file);
    file->_flags |= kErrorSeen;
    return 0;
}
size_t __fread_chk(void *out, size_t room, size_t size, size_t count, FILE *file) {
    if (size != 0 && room / size < count) abort();
    return fread(out, size, count, file);
}

ssize_t write(int file, const void *data, size_t size) {
    NEXT(write);
    if (fails_with(kWrite, ENOSPC)) return -1;
    return next.get()(file, data, size > 1 && fails(kShortWrite) ? size / 2 : size);
}

// What the C library writes for a stream is written here; the log's own streams are left alone.
int fflush(FILE *file) {
    NEXT(fflush);
    const bool pending = file != nullptr && file != stdout && file != stderr && __fpending(file) > 0;
    return pending && fails_with(kWrite, ENOSPC) ? EOF : next.get()(file);
}
int fclose(FILE *file) {
    NEXT(fclose);
    const bool lost = __fpending(file) > 0 && fails(kWrite);
    if (lost) __fpurge(file);
    const bool refused = fails(kClose);
    const int result = next.get()(file);
    if (!lost && !refused) return result;
    errno = lost ? ENOSPC : EIO;
    return EOF;
}

int fsync(int file) {
    NEXT(fsync);
    return fails_with(kSync, EIO) ? -1 : next.get()(file);
}
int fdatasync(int file) {
    NEXT(fdatasync);
    return fails_with(kSync, EIO) ? -1 : next.get()(file);
}
int rename(const char *from, const char *to) noexcept {
    NEXT(rename);
    return fails_with(kRename, EIO) ? -1 : next.get()(from, to);
}

// It is closed all the same, as Linux does it.
int close(int file) {
    NEXT(close);
    const bool refused = fails(kClose);
    const int result = next.get()(file);
    if (!refused || result != 0) return result;
    errno = EIO;
    return -1;
}
int closedir(DIR *folder) {
    NEXT(closedir);
    const bool refused = fails(kClose);
    const int result = next.get()(folder);
    if (!refused || result != 0) return result;
    errno = EIO;
    return -1;
}

// --- Processes and threads

pid_t fork() noexcept {
    NEXT(fork);
    return fails_with(kFork, EAGAIN) ? -1 : next.get()();
}
// A function that returns twice cannot be called on behalf of another; what a child of vfork may do, one of
// fork may.
pid_t vfork() noexcept {
    return fork();
}
int posix_spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                const posix_spawnattr_t *attributes, char *const arguments[], char *const environment[]) {
    NEXT(posix_spawn);
    return fails(kFork) ? EAGAIN : next.get()(child, path, actions, attributes, arguments, environment);
}
int pipe(int ends[2]) noexcept {
    NEXT(pipe);
    return fails_with(kPipe, EMFILE) ? -1 : next.get()(ends);
}
int pipe2(int ends[2], int flags) noexcept {
    NEXT(pipe2);
    return fails_with(kPipe, EMFILE) ? -1 : next.get()(ends, flags);
}
// libcurl's pipes.
int socketpair(int domain, int type, int protocol, int ends[2]) noexcept {
    NEXT(socketpair);
    return fails_with(kPipe, EMFILE) ? -1 : next.get()(domain, type, protocol, ends);
}
int eventfd(unsigned initial, int flags) noexcept {
    NEXT(eventfd);
    return fails_with(kPipe, EMFILE) ? -1 : next.get()(initial, flags);
}
int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*routine)(void *),
                   void *argument) noexcept {
    NEXT(pthread_create);
    return fails(kThread) ? EAGAIN : next.get()(thread, attributes, routine, argument);
}
int sem_init(sem_t *semaphore, int is_shared, unsigned value) noexcept {
    NEXT(sem_init);
    return fails_with(kSemaphore, ENOSPC) ? -1 : next.get()(semaphore, is_shared, value);
}

// --- Network and clock

int socket(int domain, int type, int protocol) noexcept {
    NEXT(socket);
    return fails_with(kSocket, EMFILE) ? -1 : next.get()(domain, type, protocol);
}
int connect(int handle, const sockaddr *address, socklen_t length) {
    NEXT(connect);
    return fails_with(kConnect, ENETUNREACH) ? -1 : next.get()(handle, address, length);
}
ssize_t send(int handle, const void *data, size_t size, int flags) {
    NEXT(send);
    return fails_with(kSend, ECONNRESET) ? -1 : next.get()(handle, data, size, flags);
}
ssize_t sendto(int handle, const void *data, size_t size, int flags, const sockaddr *address,
               socklen_t length) {
    NEXT(sendto);
    return fails_with(kSend, ECONNRESET) ? -1 : next.get()(handle, data, size, flags, address, length);
}
ssize_t recv(int handle, void *out, size_t size, int flags) {
    NEXT(recv);
    return fails_with(kReceive, ECONNRESET) ? -1 : next.get()(handle, out, size, flags);
}
ssize_t __recv_chk(int handle, void *out, size_t size, size_t room, int flags) {
    if (room < size) abort();
    return recv(handle, out, size, flags);
}
int clock_gettime(clockid_t clock, timespec *reading) noexcept {
    NEXT(clock_gettime);
    return fails_with(kClock, EINVAL) ? -1 : next.get()(clock, reading);
}

}  // extern "C"
