#include "wire.h"

#include <curl/curl.h>

#include <cstdarg>

#include "agent/curlmgr.h"
#include "agent/session_key.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/text.h"
#include "exports.h"
#include "fake_os.h"
#include "fake_vendor.h"
#include "z55cgi.h"

namespace {

struct Callback {
    curl_write_callback take = nullptr;
    void *target = nullptr;
};

// Of the transfer that is being prepared or performed. The queue's hand-over orders the accesses of its two
// threads.
Callback body, header;
const char *post = nullptr;
long post_size = 0;

std::vector<wire::Answer> answers;
size_t performed = 0;
bool queue_runs = false;
std::vector<std::string> bodies;

bool give(const Callback &callback, const std::vector<std::string> &pieces) {
    for (const std::string &text : pieces) {
        const Block piece(text);
        if (callback.take != nullptr &&
            callback.take(piece.data.get(), 1, piece.size, callback.target) != piece.size)
            return false;
    }
    return true;
}

}  // namespace

namespace wire {

Answer take_answer(Input &input) {
    Answer answer;
    answer.lost = input.byte() == 1;
    for (std::string text; !(text = input.text()).empty();) answer.headers.push_back(text);
    for (std::string text; !(text = input.text()).empty();) answer.pieces.push_back(text);
    return answer;
}

int reference_status(const Answer &answer) {
    int status = 0;
    for (const std::string &line : answer.headers) {
        const std::string text = until_nul(line);
        const size_t version = text.find("HTTP/1.1");
        if (version == std::string::npos) continue;
        status = version + 9 > text.size() ? 0 : reference_number(text.substr(version + 9, 3));
    }
    return status;
}

std::optional<std::string> reference_last_piece(const Answer &answer) {
    if (answer.pieces.empty()) return std::nullopt;
    return until_nul(answer.pieces.back());
}

bool reference_succeeds(const Answer &answer) {
    return !answer.lost && reference_status(answer) == 200;
}

void script(std::vector<Answer> of_camera) {
    answers = std::move(of_camera);
    performed = 0;
    bodies.clear();
}

const std::vector<std::string> &posted() {
    return bodies;
}

void start_queue() {
    queue_runs = true;
    start_curl_thread(nullptr);
}

void configure() {
    fake_os::reset();
    write_file(kConfPath,
               "hostIP=camera\nITEM_DEVICE=Cam\nITEM_STREAM=Live\nPASSWORD=secret\nSESSION_KEY=12345\n"
               "COOKIE=/tmp/cookie\n");
    copy_text(hostIP, "camera");
    copy_text(session_key_buffer, "12345");
}

void forget() {
    script({});
    // The product keeps the replies to the last two.
    for (int i = 0; queue_runs && i < 2; i++) (void)curl_POST("http://camera/", "");
    script({});
    fake_os::reset();
    fake_vendor::reset();
}

}  // namespace wire

extern "C" {

CURLcode __real_curl_easy_setopt(CURL *handle, CURLoption option, ...);

CURLcode __wrap_curl_easy_setopt(CURL *handle, int number, ...) {
    const CURLoption option = static_cast<CURLoption>(number);
    va_list arguments;
    va_start(arguments, number);
    void *value = va_arg(arguments, void *);  // a pointer or a long: the agent sets no other kind
    va_end(arguments);
    if (option == CURLOPT_URL) post = nullptr;  // the first that is set of a request
    if (option == CURLOPT_WRITEFUNCTION) body.take = reinterpret_cast<curl_write_callback>(value);
    if (option == CURLOPT_WRITEDATA) body.target = value;
    if (option == CURLOPT_HEADERFUNCTION) header.take = reinterpret_cast<curl_write_callback>(value);
    if (option == CURLOPT_HEADERDATA) header.target = value;
    if (option == CURLOPT_POSTFIELDS) post = static_cast<const char *>(value);
    if (option == CURLOPT_POSTFIELDSIZE) post_size = reinterpret_cast<long>(value);
    return __real_curl_easy_setopt(handle, option, value);
}

CURLcode __wrap_curl_easy_perform(CURL *) {
    bodies.emplace_back(post != nullptr ? std::string(post, static_cast<size_t>(post_size)) : std::string());
    if (performed == answers.size()) return CURLE_COULDNT_CONNECT;
    const wire::Answer &answer = answers[performed++];
    if (!give(header, answer.headers) || !give(body, answer.pieces)) return CURLE_WRITE_ERROR;
    return answer.lost ? CURLE_RECV_ERROR : CURLE_OK;
}

}  // extern "C"
