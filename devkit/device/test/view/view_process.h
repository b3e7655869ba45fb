// A device view started by a test: its standard output, its signals, its end. Killed when it goes out of
// scope.
#ifndef DEVKIT_DEVICE_TEST_VIEW_PROCESS_H
#define DEVKIT_DEVICE_TEST_VIEW_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

class ViewProcess {
  public:
    ViewProcess(pid_t pid, int output) : pid_(pid), output_(output) {}
    ViewProcess(const ViewProcess &) = delete;
    ViewProcess &operator=(const ViewProcess &) = delete;
    ~ViewProcess();

    // What the view prints, until the next line end or until nobody holds its output open any more. A silence
    // of half a minute fails the test and ends the reading.
    std::string read_line();
    std::string read_to_end();

    void signal(int number) const;

    // Waits for the launcher's end and gives its exit code, 128 + n for signal n.
    int wait();

    // Whether the launcher ends within so many milliseconds.
    bool has_ended_within(int milliseconds) const;

  private:
    bool read_byte(char &byte) const;

    pid_t pid_;
    int output_;
};

// Runs device-view with these options and this command.
ViewProcess start_view(const std::vector<std::string> &options, const std::vector<std::string> &command);

#endif
