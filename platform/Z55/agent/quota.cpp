#include "quota.h"

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "../sdk/usock.h"
#include "alarm_latch.h"
#include "alarm_rules.h"
#include "utils/conf_file.h"
#include "utils/reply.h"
#include "utils/transfer.h"

namespace {

constexpr long kConnectSeconds = 2;
constexpr long kTransferSeconds = 10;
constexpr size_t kReplyLimit = 4096;  // bytes of a reply that are kept

constinit bool latched = false;  // an alarm that was sent lasts

struct Quota {
    std::uint64_t total, used;  // bytes
};

std::optional<std::string> access_token() {
    char token[512] = {};
    if (readTokenFromFile(token, sizeof token) != 0) {
        if (soapGetToken() != 0) {
            std::puts("(nimbo_polling) Cannot get token from Server by SOAP.");
            return std::nullopt;
        }
        if (readTokenFromFile(token, sizeof token) != 0) {
            std::puts("(nimbo_polling) Cannot get token!");
            return std::nullopt;
        }
    }
    token[sizeof token - 1] = '\0';
    return token;
}

size_t quota_write_callback(char *piece, size_t size, size_t nmemb, void *reply) {
    Reply &whole = *static_cast<Reply *>(reply);
    if ((*whole).size() < kReplyLimit && !whole.append(piece_text(piece, size * nmemb))) return 0;
    return size * nmemb;
}

std::string storage_host() {
    const std::string host = conf_value("NIMB_HOST").value_or("");
    return host.empty() ? VELO_NIMB_HOST : host;
}

bool fetch_quota(const std::string &token, Reply &reply) {
    Sink sink{quota_write_callback, &reply};
    const Transfer transfer = new_transfer(
        {.url = "https://" + storage_host() + "/rest/2.0/cbx/quota?method=info&access_token=" + token,
         .https_redirects_only = true,
         .connect_seconds = kConnectSeconds,
         .whole_seconds = kTransferSeconds});
    if (!transfer) {
        std::puts("not enough memory for a request");
        return false;
    }
    set_body_sink(transfer, sink);
    const int result = perform(transfer);
    if (result == 0) return true;
    std::printf("(nimbo_polling) CURL failed: %s\n", transfer_error_text(result));
    return false;
}

// The first two pieces behind a ":" that begin with a number: total and used.
std::optional<Quota> parse_quota(const char *reply) {
    std::uint64_t numbers[2] = {};
    int found = 0;
    for (const char *piece = std::strchr(reply, ':'); piece != nullptr && found < 2;
         piece = std::strchr(piece, ':')) {
        piece += 1 + std::strspn(piece + 1, " \t\r\n");
        if (std::isdigit(static_cast<unsigned char>(*piece)) == 0) continue;
        numbers[found++] = std::strtoull(piece, nullptr, 10);
    }
    if (found < 2 || numbers[0] == 0) return std::nullopt;
    return Quota{numbers[0], numbers[1]};
}

std::optional<Quota> ask_quota() {
    const auto token = access_token();
    if (!token) return std::nullopt;
    Reply reply;
    if (!fetch_quota(*token, reply)) return std::nullopt;
    if ((*reply).find("error_code") != std::string_view::npos) {
        std::printf("(nimbo_polling) CURL response: %s\n", reply.c_str());
        remove_token();
        return std::nullopt;
    }
    const auto quota = parse_quota(reply.c_str());
    if (!quota) {
        std::printf("(nimbo_polling) no quota in the response: %s\n", reply.c_str());
        return std::nullopt;
    }
    std::printf("(nimbo_polling) CURL response: total = %llu, used = %llu.\n",
                static_cast<unsigned long long>(quota->total), static_cast<unsigned long long>(quota->used));
    return quota;
}

}  // namespace

void check_quota() {
    if (conf_value(kQuotaEvent.armed_key).value_or("") != "1") return;
    const auto quota = ask_quota();
    if (!quota) return;
    const auto low = conf_number(kQuotaEvent.threshold_key, 0);
    if (!low) return;  // no alarm recovers by that
    apply_level(kQuotaEvent, latched, static_cast<int>(free_percent(quota->total, quota->used)) < *low, 0);
}
