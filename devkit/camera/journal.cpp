#include "journal.h"

#include <chrono>

namespace {

constexpr std::size_t kEntriesKept = 100000, kBodyBytesKept = 64 * 1024 * 1024;

void drop_oldest(Journal &log) {
    log.body_bytes -= log.entries.front().request.body.size();
    log.entries.pop_front();
}

// Any bytes as valid JSON text: 0x80 and above become the code points of the same number.
std::string latin1_text(const std::string &bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (const unsigned char byte : bytes) {
        if (byte >= 0x80) text += static_cast<char>(0xC0 | byte >> 6);
        text += static_cast<char>(byte < 0x80 ? byte : 0x80 | (byte & 0x3F));
    }
    return text;
}

std::string base64(const std::string &bytes) {
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t j = 0; j < 3; ++j)
            group = group << 8 | (i + j < bytes.size() ? static_cast<unsigned char>(bytes[i + j]) : 0u);
        for (std::size_t j = 0; j < 4; ++j)
            text += i + j > bytes.size() ? '=' : digits[group >> (18 - 6 * j) & 63];
    }
    return text;
}

json entry_json(const JournalEntry &entry) {
    json headers = json::object();
    for (const auto &[name, value] : entry.request.headers) headers[latin1_text(name)] = latin1_text(value);
    json shown;
    shown["seq"] = entry.seq;
    shown["method"] = latin1_text(entry.request.method);
    shown["target"] = latin1_text(entry.request.target);
    shown["endpoint"] = latin1_text(entry.request.endpoint());
    shown["cookie"] = latin1_text(entry.request.header("Cookie"));
    shown["headers"] = std::move(headers);
    shown["body"] = latin1_text(entry.request.body);
    shown["body_base64"] = base64(entry.request.body);
    shown["time_ms"] = entry.time_ms;
    shown["end_ms"] = entry.end_ms > 0 ? json(entry.end_ms) : json();
    shown["status"] = entry.status > 0 ? json(entry.status) : json();
    shown["reply"] = latin1_text(entry.reply);
    shown["fault"] = entry.fault.empty() ? json() : json(entry.fault);
    return shown;
}

}  // namespace

std::uint64_t journal_add(Journal &log, const HttpRequest &request, const std::string &fault,
                          double time_ms) {
    std::lock_guard guard(log.lock);
    JournalEntry entry{++log.last_seq, request, fault, time_ms, 0, 0, ""};
    log.body_bytes += request.body.size();
    log.entries.push_back(std::move(entry));
    while (log.entries.size() > kEntriesKept || log.body_bytes > kBodyBytesKept) drop_oldest(log);
    ++log.counters[request.endpoint()];
    return log.last_seq;
}

void journal_end(Journal &log, std::uint64_t seq, int status, const std::string &reply) {
    std::lock_guard guard(log.lock);
    if (log.entries.empty() || seq < log.entries.front().seq) return;
    JournalEntry &entry = log.entries[seq - log.entries.front().seq];
    entry.end_ms = monotonic_ms();
    entry.status = status;
    entry.reply = reply;
}

json journal_list(Journal &log, std::uint64_t since, const std::string &endpoint, std::size_t limit) {
    std::lock_guard guard(log.lock);
    std::deque<const JournalEntry *> wanted;
    for (auto entry = log.entries.rbegin();
         entry != log.entries.rend() && wanted.size() < limit && entry->seq > since; ++entry)
        if (endpoint.empty() || entry->request.endpoint() == endpoint) wanted.push_front(&*entry);
    json list = json::array();
    for (const auto *entry : wanted) list.push_back(entry_json(*entry));
    return list;
}

void journal_clear(Journal &log) {
    std::lock_guard guard(log.lock);
    log.entries.clear();
    log.body_bytes = 0;
}

double monotonic_ms() {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
