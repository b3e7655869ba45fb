// The least program with the agent's libraries: it connects to the URL it is given.
#include <curl/curl.h>

#include <string>

#include "sdk/ef.h"
#include "sdk/usock.h"
#include "sdk/vq_ipca.h"

int main(int, char **arguments) {
    // Never called: the libraries are to be asked for.
    if (arguments[1] == nullptr) {
        vq_ipca_init(nullptr, nullptr, nullptr);
        return ExFramer_Capture_Stop() + remove_token();
    }
    curl_global_init(CURL_GLOBAL_ALL);
    CURL *handle = curl_easy_init();
    const std::string url = arguments[1];
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    return curl_easy_perform(handle);
}
