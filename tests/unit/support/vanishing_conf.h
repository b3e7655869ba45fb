// A configuration file that is there for a given number of readings and gone at the next.
#ifndef UNIT_SUPPORT_VANISHING_CONF_H
#define UNIT_SUPPORT_VANISHING_CONF_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "agent_test.h"

// Each reading gets a FIFO of its own, so that none sees another's text.
class VanishingConf {
  public:
    // Holds what the file holds now. All `readings` must come before this ends.
    explicit VanishingConf(int readings) : text_(conf_text()) {
        remove_conf();
        make();
        server_ = std::thread([this, readings] {
            for (int left = readings; left > 0; left--) serve(left == 1);
        });
    }
    ~VanishingConf() {
        server_.join();
    }
    VanishingConf(const VanishingConf &) = delete;
    VanishingConf &operator=(const VanishingConf &) = delete;

  private:
    static constexpr char kPath[] = "/tmp/working/VeloAgent.conf";

    static void make() {
        if (mkfifo(kPath, 0600) != 0) ADD_FAILURE() << "no FIFO";
    }
    void serve(bool last) const {
        const int file = open(kPath, O_WRONLY | O_CLOEXEC);  // until a reader is there
        remove_conf();
        if (!last) make();
        EXPECT_EQ(write(file, text_.data(), text_.size()), static_cast<ssize_t>(text_.size()));
        close(file);
    }

    std::string text_;
    std::thread server_;
};

#endif
