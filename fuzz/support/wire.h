// The camera's end of every transfer: libcurl's perform is the target's, so that an answer comes in any
// pieces, at once and without a socket. One transfer at a time.
#ifndef FUZZ_WIRE_H
#define FUZZ_WIRE_H

#include <optional>
#include <string>
#include <vector>

#include "fuzz.h"

namespace wire {

struct Answer {
    bool lost = false;  // a transfer error, after all that
    std::vector<std::string> headers = {};
    std::vector<std::string> pieces = {};
};
// Of an input: a byte (1: lost), header lines each up to 0xFF until an empty one, pieces likewise.
Answer take_answer(Input &input);

// What a reader of the whole knows of it: the status code, the last piece as a C text (nothing without any
// piece).
int reference_status(const Answer &answer);
std::optional<std::string> reference_last_piece(const Answer &answer);
bool reference_succeeds(const Answer &answer);  // and the status is 200

// The answers of the next transfers; all behind them are lost.
void script(std::vector<Answer> answers);

// The body of every POST since the last script, "" for a GET.
const std::vector<std::string> &posted();

// The queue's worker, once; the configuration of a camera and a session key.
void start_queue();
void configure();

// Nothing of an input stays: the next one begins as this one did, and no block is taken for lost.
void forget();

}  // namespace wire

#endif
