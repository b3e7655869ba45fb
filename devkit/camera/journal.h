// The record of every CGI request, to the byte, for GET /requests. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>

#include "http.h"
#include "json.h"

struct JournalEntry {
    std::uint64_t seq = 0;
    HttpRequest request;
    std::string fault;               // the kind of misbehaviour applied; empty: none
    double time_ms = 0, end_ms = 0;  // monotonic; end 0: not ended
    int status = 0;                  // of the reply; 0: none sent (yet)
    std::string reply;               // its first bytes, header too
};

struct Journal {
    std::mutex lock;                   // guards all below
    std::deque<JournalEntry> entries;  // bounded in number and in body bytes, oldest first, seq without a gap
    std::size_t body_bytes = 0;
    std::uint64_t last_seq = 0;
    std::map<std::string, std::uint64_t> counters;  // requests ever, by endpoint
};

// Adds a request that is complete by now; returns its seq.
std::uint64_t journal_add(Journal &log, const HttpRequest &request, const std::string &fault, double time_ms);

// Notes the end of a request; nothing happens where it is forgotten already.
void journal_end(Journal &log, std::uint64_t seq, int status, const std::string &reply);

// The entries after `since` (of one endpoint where that is not empty), at most the `limit` newest, oldest
// first.
json journal_list(Journal &log, std::uint64_t since, const std::string &endpoint, std::size_t limit);

void journal_clear(Journal &log);

// The monotonic clock in milliseconds.
double monotonic_ms();
