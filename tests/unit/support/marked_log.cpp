#include "marked_log.h"

#include <optional>

namespace {

// In a pattern: '*' stands for any characters of the line, '?' for any but blanks, which the mark takes over.
// Each is as short as what follows it allows. In a mark '?' is what the pattern's '?' stood for.
struct Reduction {
    const char *pattern;
    const char *mark;
};

// Applied in this order to the whole text.
constexpr Reduction kReductions[] = {
    {"curlmgr_enqueue_job OK. res = *\n ", ""},
    {"curl_GET url = http://127.0.0.1:8080/CGI/? , cookie = *\n,---  *\n", "[GET ?]\n"},
    {"curl_POST  url = http://127.0.0.1:8080/CGI/? , cookie = *\n", "[POST ?]\n"},
    {"(poll) perform_curl url = http://127.0.0.1:8080/CGI/?\n", "[QUERY ?]\n"},
    {"(poll) perform_curl url = http://127.0.0.1:08080/CGI/?\n", "[QUERY ?]\n"},
    {"\n***(easy remote control) curl_perform starts ***\n", "[ACTION]\n"},
    {"*** (poll) curl_perform starts ***\n", ""},
    {"*** (poll) curl_perform ends ***\n", ""},
    {"curlmgr_perform_curl called\n", ""},
    {"high size: *\n", ""},
    {"default size: *\n", ""},
    {"curlmgr: performing curl, name = *\n", ""},
    {"res: *\n", ""},
    {"*** (poll) write_callback_func: *\n", ""},
    {"curl_POST ok , res = 0\n", ""},
    {"easy remote: platform/Z55/z55cgi,line 86 \n*\n", ""},
    {"res !=CURLE_OK: platform/Z55/ak_model,line 1364\n", ""},
    {"res !=CURLE_OK: platform/Z55/ak_model,line 1321\n", ""},
    {"After res !=CURLE_OK: platform/Z55/ak_model,line 1366\n", "[failed]\n"},
    {"After res !=CURLE_OK: platform/Z55/ak_model,line 1323\ncurl_POST failure res = *\n", "[failed]\n"},
    {"After res !=CURLE_OK: platform/Z55/agent/polling,line 126\n", "[failed]\n"},
    {"status != 200, status code = ?  (platform/Z55/ak_model: 1370)\n", "[failed]\n"},
    {"status != 200, status code = ?  (platform/Z55/agent/polling: 132)\n", "[failed]\n"},
};

// Three asterisks in a row are themselves: the agent's own decoration.
bool is_wildcard(const char *pattern, const char *start) {
    if (*pattern == '?') return true;
    return *pattern == '*' && pattern[1] != '*' && (pattern == start || pattern[-1] != '*');
}

// Where in `text` the match of `pattern` at `position` ends; `taken` becomes what '?' stands for.
std::optional<size_t> match_end(const std::string &text, size_t position, const char *pattern,
                                const char *start, std::string &taken) {
    for (; *pattern != '\0' && !is_wildcard(pattern, start); pattern++, position++) {
        if (position >= text.size() || text[position] != *pattern) return std::nullopt;
    }
    if (*pattern == '\0') return position;
    for (size_t end = position; end <= text.size(); end++) {
        if (const auto whole = match_end(text, end, pattern + 1, start, taken)) {
            if (*pattern == '?') taken = text.substr(position, end - position);
            return whole;
        }
        if (end == text.size() || text[end] == '\n' || (*pattern == '?' && text[end] == ' ')) break;
    }
    return std::nullopt;
}

std::string reduced(const std::string &text, const Reduction &reduction) {
    std::string result;
    for (size_t position = 0; position < text.size();) {
        std::string taken;
        const auto end = text[position] == reduction.pattern[0]
                             ? match_end(text, position, reduction.pattern, reduction.pattern, taken)
                             : std::nullopt;
        if (!end) {
            result += text[position++];
            continue;
        }
        for (const char *mark = reduction.mark; *mark != '\0'; mark++) {
            result += *mark == '?' ? taken : std::string(1, *mark);
        }
        position = *end;
    }
    return result;
}

}  // namespace

std::string marked_log(const std::string &log) {
    std::string text = log;
    for (const Reduction &reduction : kReductions) text = reduced(text, reduction);
    return text;
}
