#include "poll_gate.h"

PollGate::PollGate(Desk &desk) : desk_(desk), fault_(close()) {
    wait_until_held();
}

PollGate::~PollGate() {
    desk_.clear_faults();
}

void PollGate::let_cycle_pass() {
    const int open = fault_;
    fault_ = close();
    desk_.camera("DELETE", "/faults/" + std::to_string(open));
    wait_until_held();
}

int PollGate::close() {
    return desk_.fault({{"endpoint", "CameraStatus"}, {"match", "?Notification&"}, {"kind", "hang"}});
}

void PollGate::wait_until_held() {
    wait_until("a poll is held", [this] {
        for (const json &fault : desk_.camera("GET", "/faults"))
            if (fault["id"] == fault_) return fault["hits"].get<int>() > 0;
        return false;
    });
}
