#include "storage_service.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "agent_test.h"

extern "C" {
CURLcode __real_curl_easy_perform(CURL *handle);
CURLcode __wrap_curl_easy_perform(CURL *handle);
}

namespace {

constexpr char kKey[] = "/tmp/storage.key", kCertificate[] = "/tmp/storage.pem";
constexpr char kListening[] = " 0100007F:20FB 00000000:0000 0A ";  // of /proc/net/tcp: port 8443

std::atomic<bool> trusted{false};

void must(bool done, const char *what) {
    if (done) return;
    std::perror(what);
    std::abort();
}

// Starts a program with these descriptors as its standard input and output.
pid_t start(const Texts &arguments, int input, int output) {
    std::vector<char *> texts;
    for (const std::string &argument : arguments) texts.push_back(const_cast<char *>(argument.c_str()));
    texts.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    must(posix_spawnp(&child, texts[0], &actions, nullptr, texts.data(), environ) == 0, texts[0]);
    posix_spawn_file_actions_destroy(&actions);
    return child;
}

void make_certificate(const std::string &name) {
    const pid_t child = start(
        {"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
         "-keyout", kKey, "-out", kCertificate, "-subj", "/CN=storage", "-addext", "subjectAltName=" + name},
        STDIN_FILENO, STDERR_FILENO);
    int status = 0;
    must(waitpid(child, &status, 0) == child && status == 0, "openssl req");
}

}  // namespace

StorageService::StorageService(Texts replies, const std::string &name) {
    make_certificate(name);
    int input[2], output[2];
    must(pipe2(input, O_CLOEXEC) == 0 && pipe2(output, O_CLOEXEC) == 0, "pipe2");
    server_ = start({"openssl", "s_server", "-quiet", "-accept", kHost, "-key", kKey, "-cert", kCertificate},
                    input[0], output[1]);
    close(input[0]);
    close(output[1]);
    to_client_ = input[1];
    from_client_ = output[0];
    must(eventually([] { return read_file("/proc/net/tcp").find(kListening) != std::string::npos; }),
         "openssl s_server");
    trust_storage_service(true);
    thread_ = std::thread([this, replies = std::move(replies)] { serve(replies); });
}

StorageService::~StorageService() {
    stop();
}

Texts StorageService::stop() {
    if (server_ > 0) {
        kill(server_, SIGKILL);
        waitpid(server_, nullptr, 0);
        thread_.join();
        close(to_client_);
        close(from_client_);
        server_ = -1;
    }
    return requests_;
}

void StorageService::serve(const Texts &replies) {
    std::string text;
    for (const std::string &reply : replies) {
        size_t end = 0;
        while ((end = text.find("\r\n\r\n")) == std::string::npos) {
            char piece[4096];
            const ssize_t count = read(from_client_, piece, sizeof piece);
            if (count <= 0) return;
            text.append(piece, static_cast<size_t>(count));
        }
        requests_.push_back(text.substr(0, end + 4));
        text.erase(0, end + 4);
        must(write(to_client_, reply.data(), reply.size()) == static_cast<ssize_t>(reply.size()), "write");
    }
}

void trust_storage_service(bool trust) {
    trusted = trust;
}

CURLcode __wrap_curl_easy_perform(CURL *handle) {
    if (trusted) curl_easy_setopt(handle, CURLOPT_CAINFO, kCertificate);
    return __real_curl_easy_perform(handle);
}
