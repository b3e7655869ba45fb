// The one way to the camera: its address, and the exchange of a request and its reply that is under every
// primitive. Any thread but the queue's worker.
#ifndef Z55_AGENT_EXCHANGE_H
#define Z55_AGENT_EXCHANGE_H

#include <string>

#include "utils/transfer.h"

inline constexpr size_t kUrlSize = 200;  // of the buffer that an address is made in

// The address of `path` (which begins with "/") on `host`, cut to fit.
std::string camera_url(const char *host, const std::string &path);

// A request, and what comes back: libcurl's result and the HTTP status; the body goes to its sink meanwhile.
class Exchange {
  public:
    // What the request's body refers to lasts as long as this does.
    Exchange(const Request &request, Sink body);
    // The header goes to `header` and the status stays 0.
    Exchange(const Request &request, Sink body, Sink header);
    Exchange(const Exchange &) = delete;
    Exchange &operator=(const Exchange &) = delete;

    // False where there was no memory: nothing is sent then.
    bool prepared() const {
        return transfer_ != nullptr;
    }
    // Both send the request and block until it is through, however long that takes: when its turn has come in
    // the job queue, or on this thread past the queue. Return libcurl's result, 0 for success; -1 where the
    // queue refused it.
    [[nodiscard]] int queue(int priority, const char *job_name);
    [[nodiscard]] int perform();

    // Of the last response; 0 where none came or it was no HTTP/1.1.
    int status() const {
        return status_;
    }
    void release() {
        transfer_.reset();
    }

  private:
    int seen(int result);
    int status_ = 0;
    Sink body_, header_;
    Transfer transfer_;
};

#endif
