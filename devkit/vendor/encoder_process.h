// The encoder as a child of the agent's process, without any trace in that process: no signal handler, no
// zombie, no descriptor left to it. Used by one thread at a time.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "encoder/protocol.h"

namespace desk {

class EncoderProcess {
  public:
    // Starts `path` for a profile; running() tells whether it worked.
    EncoderProcess(const std::string &path, const std::string &profile);
    // Ends the child and collects it.
    ~EncoderProcess();
    EncoderProcess(const EncoderProcess &) = delete;
    EncoderProcess &operator=(const EncoderProcess &) = delete;

    bool running() const {
        return pid_ > 0;
    }
    pid_t pid() const {
        return pid_;
    }
    // To be polled for reading.
    int descriptor() const {
        return out_;
    }
    // Blocks until a whole frame is there; false at the child's end or when it writes nonsense.
    bool read_frame(EncoderFrameHeader &header, std::vector<uint8_t> &data);

  private:
    pid_t pid_ = -1;
    int out_ = -1;
};

}  // namespace desk
