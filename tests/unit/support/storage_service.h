// A cloud-storage service over HTTPS on 127.0.0.1:8443, by openssl's own test server: keeps every request to
// the byte and gives one scripted reply to each, in order. The agent's transfers trust its certificate
// (linked with --wrap of curl_easy_perform).
#ifndef UNIT_SUPPORT_STORAGE_SERVICE_H
#define UNIT_SUPPORT_STORAGE_SERVICE_H

#include <sys/types.h>

#include <string>
#include <thread>

#include "fake_os.h"

class StorageService {
  public:
    // Serves with a fresh certificate for `name` ("IP:127.0.0.1"). Blocks until the port is open.
    explicit StorageService(Texts replies, const std::string &name = "IP:127.0.0.1");
    ~StorageService();
    StorageService(const StorageService &) = delete;
    StorageService &operator=(const StorageService &) = delete;

    static constexpr char kHost[] = "127.0.0.1:8443";

    // Ends the server. Its requests so far, each from the request line to the empty line.
    Texts stop();

  private:
    void serve(const Texts &replies);

    pid_t server_ = -1;
    int to_client_ = -1, from_client_ = -1;
    std::thread thread_;
    Texts requests_;
};

// Whether transfers trust the fake's certificate (they do from its start on).
void trust_storage_service(bool trust);

#endif
