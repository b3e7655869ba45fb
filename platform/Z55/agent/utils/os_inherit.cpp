#include "os_inherit.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

namespace {

constexpr rlim_t kMostDescriptors = 65536;  // where the system sets a limit that is none

// One call where the kernel has it.
bool close_range_above_2([[maybe_unused]] unsigned flags) {
#ifdef SYS_close_range
    return syscall(SYS_close_range, 3U, ~0U, flags) == 0;
#else
    return false;
#endif
}

// Descriptors are given out from the lowest number up and end here.
int descriptor_limit() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<int>(std::min(limit.rlim_cur, kMostDescriptors));
}

}  // namespace

void close_descriptors() {
    if (close_range_above_2(0)) return;
    const int limit = descriptor_limit();
    for (int descriptor = 3; descriptor < limit; descriptor++) close(descriptor);
}

void reset_signals() {
    struct sigaction normal {};
    normal.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; number++) sigaction(number, &normal, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}
