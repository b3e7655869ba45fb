// A configuration file that is gone at one of the instants at which it is read.
#ifndef UNIT_SUPPORT_VANISHING_CONF_H
#define UNIT_SUPPORT_VANISHING_CONF_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "agent_test.h"

// There for a number of readings and gone at the next. Each reading gets a FIFO of its own, so that none sees
// another's text.
class VanishingConf {
  public:
    VanishingConf(const std::string &text, int readings) : text_(text), left_(readings) {
        remove_conf();
        if (readings == 0) return;
        make();
        server_ = std::thread([this] { serve(); });
    }
    // Readings that have not come are read here.
    ~VanishingConf() {
        if (!server_.joinable()) return;
        while (left_ > 0) {
            const int file = open(kPath, O_RDONLY | O_CLOEXEC);
            char piece[4096];
            while (file >= 0 && read(file, piece, sizeof piece) > 0) continue;
            if (file >= 0) close(file);
        }
        server_.join();
    }
    VanishingConf(const VanishingConf &) = delete;
    VanishingConf &operator=(const VanishingConf &) = delete;

    // Whether it has not been read as often as it could have been.
    bool is_left() const {
        return left_ > 0;
    }

  private:
    static constexpr char kPath[] = "/tmp/working/VeloAgent.conf";

    static void make() {
        if (mkfifo(kPath, 0600) != 0) ADD_FAILURE() << "no FIFO";
    }
    void serve() {
        while (left_ > 0) {
            const int file = open(kPath, O_WRONLY | O_CLOEXEC);  // until a reader is there
            remove_conf();
            if (--left_ > 0) make();
            EXPECT_EQ(write(file, text_.data(), text_.size()), static_cast<ssize_t>(text_.size()));
            close(file);
        }
    }

    const std::string text_;
    std::atomic<int> left_;
    std::thread server_;
};

// Calls `run` with the configuration `text` gone before its first reading, then before its second, and so on,
// until `run` returns true: what is sought has happened. False where it never does, up to a run that found
// the file at every reading.
template <typename Run>
bool at_some_vanishing(const std::string &text, Run run) {
    for (int readings = 0;; readings++) {
        const VanishingConf conf(text, readings);
        if (run()) return true;
        if (conf.is_left()) return false;
    }
}

#endif
