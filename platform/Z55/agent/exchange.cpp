#include "exchange.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "../exports.h"
#include "curlmgr.h"
#include "utils/text.h"

std::string camera_url(const char *host, const std::string &path) {
    return format_text(kUrlSize, "http://%s%s", host, path.c_str());
}

Exchange::Exchange(const Request &request, Sink body)
    : Exchange(request, body, Sink{http_status_code_checker, &status_}) {}

Exchange::Exchange(const Request &request, Sink body, Sink header)
    : body_(body), header_(header), transfer_(new_transfer(request)) {
    set_body_sink(transfer_, body_);
    set_header_sink(transfer_, header_);
}

int Exchange::queue(int priority, const char *job_name) {
    return transfer_ ? seen(curlmgr_enqueue_job(transfer_.get(), priority, job_name)) : kNoTransfer;
}

int Exchange::perform() {
    return seen(::perform(transfer_));
}

// What libcurl had no memory for in the midst of a transfer it may miss in all of that handle's next ones.
int Exchange::seen(int result) {
    if (result != 0) transfer_.get_deleter().reusable = false;
    return result;
}

size_t http_status_code_checker(char *line, size_t size, size_t nmemb, void *status) {
    const std::string_view text = piece_text(line, size * nmemb);
    const size_t version = text.find("HTTP/1.1");
    if (version != std::string_view::npos && status != nullptr) {
        char digits[4];
        copy_text(digits, text.substr(std::min(version + 9, text.size())));
        const int code = to_int(digits);
        *static_cast<int *>(status) = code;
        std::printf("res: %d\n", code);
    }
    return size * nmemb;
}
