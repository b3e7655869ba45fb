#include "marked_log.h"

#include <regex>

namespace {

// Applied in this order to the whole text. $1 is the path.
struct Reduction {
    const char *pattern;
    const char *replacement;
};

constexpr Reduction kReductions[] = {
    {R"(curlmgr_enqueue_job OK\. res = [^\n]*\n )", ""},
    {R"(curl_GET url = http://[^/\n]*/CGI/([^ \n]*) , cookie = [^\n]*\n,---  [^\n]*\n)", "[GET $1]\n"},
    {R"(curl_POST  url = http://[^/\n]*/CGI/([^ \n]*) , cookie = [^\n]*\n)", "[POST $1]\n"},
    {R"(\(poll\) perform_curl url = http://[^/\n]*/CGI/([^\n]*)\n)", "[QUERY $1]\n"},
    {R"(\n\*\*\*\(easy remote control\) curl_perform starts \*\*\*\n)", "[ACTION]\n"},
    {R"(\*\*\* \(poll\) curl_perform (starts|ends) \*\*\*\n)", ""},
    {R"(curlmgr_perform_curl called\n)", ""},
    {R"((high|default) size: [0-9]+\n)", ""},
    {R"(curlmgr: performing curl, name = [^\n]*\n)", ""},
    {R"(res: [0-9]+\n)", ""},
    {R"(\*\*\* \(poll\) write_callback_func: [^\n]* \*\*\*\n)", ""},
    {R"(curl_POST ok , res = 0\n)", ""},
    {R"(easy remote: platform/Z55/z55cgi,line 86 \n[^\n]*\n)", ""},
    {R"(res !=CURLE_OK: platform/Z55/ak_model,line (1364|1321)\n)", ""},
    {R"(After res !=CURLE_OK: platform/Z55/ak_model,line 1366\n)", "[failed]\n"},
    {R"(After res !=CURLE_OK: platform/Z55/ak_model,line 1323\ncurl_POST failure res = -?[0-9]+\n)",
     "[failed]\n"},
    {R"(After res !=CURLE_OK: platform/Z55/agent/polling,line 126\n)", "[failed]\n"},
    {R"(status != 200, status code = [0-9]+  \(platform/Z55/(ak_model: 1370|agent/polling: 132)\)\n)",
     "[failed]\n"},
};

}  // namespace

std::string marked_log(const std::string &log) {
    std::string text = log;
    for (const Reduction &reduction : kReductions) {
        text = std::regex_replace(text, std::regex(reduction.pattern), reduction.replacement);
    }
    return text;
}

std::string without_curl_trace(const std::string &log) {
    // "* " tells, "> " and "< " are header lines and "{ ", "} " are data lines; request headers follow "> ".
    static const std::regex trace(R"((^|\n)([*<>{}] ?[^\n]*|[A-Za-z-]+: [^\n]*\r|\r)(?=\n))");
    std::string text = "\n" + log;
    text = std::regex_replace(text, trace, "");
    return text.empty() ? text : text.substr(1);
}
