#include "reboot.h"

#include <cstdio>

#include "../agent/utils/os.h"
#include "../log_sources.h"

int reboot_device() {
    std::printf("!!!***%s %d ***!!!\n ***** reboot operation*****\n", kModelSource, __LINE__);
    const int local_res = exec_reboot_tool();
    if (local_res == 0) {
        std::puts("system reboot ok");
        return 0;
    }
    std::puts("system reboot failure");
    std::printf("local_res = %d\n", local_res);
    return -1;
}
