// What libcurl calls: a reply's body and header in arbitrary pieces. Then a login on an arbitrary answer.
#include <unistd.h>

#include <cstring>

#include "agent/exchange.h"
#include "agent/loginout.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/reply_text.h"
#include "exports.h"
#include "support/wire.h"
#include "z55cgi.h"

namespace {

constexpr char kFirmwareVersion[] = "/tmp/FWVER.txt";

// The sinks, and what they should hold.
struct Sinks {
    Reply reply;
    std::string expected_reply;
    char result[129] = {};
    std::string expected_result;
    photo_buffer photo{0, nullptr};
    std::string expected_photo;
    int status = 0;
    wire::Answer headers;

    ~Sinks() {
        std::free(photo.data);
    }
};

// libcurl's size is 1; the callbacks take any product.
size_t give(curl_write_callback take, const std::string &text, size_t size, void *target) {
    const Block piece(text);
    const size_t whole = piece.size % size == 0 ? size : 1;
    return take(piece.data.get(), whole, piece.size / whole, target);
}

void check_sinks(const Sinks &sinks) {
    check(*sinks.reply == sinks.expected_reply, "a reply is its last piece up to a NUL");
    check(std::strlen(sinks.reply.c_str()) == sinks.expected_reply.size(), "a reply is a C text");
    check(sinks.result == sinks.expected_result, "a result is its last piece's first 128 bytes up to a NUL");
    check(sinks.result[128] == '\0', "nothing is written behind a result");
    check(std::string_view(sinks.photo.data != nullptr ? sinks.photo.data : "", sinks.photo.count) ==
              sinks.expected_photo,
          "a photo is all its pieces");
    check(sinks.photo.data == nullptr || sinks.photo.data[sinks.photo.count] == '\0', "a NUL ends a photo");
    check(sinks.status == wire::reference_status(sinks.headers), "a status is the last status line's");
}

void give_pieces(Input &input) {
    Sinks sinks;
    for (uint8_t kind; (kind = input.byte()) != 0;) {
        const std::string piece = input.bytes(input.byte() * (kind >= 64 ? 16 : 1));
        const size_t size = kind / 4 % 4 + 1;
        size_t taken = 0;
        if (kind % 4 == 0) {
            sinks.expected_reply = until_nul(piece);
            taken = give(poll_write_callback, piece, size, &sinks.reply);
        } else if (kind % 4 == 1) {
            sinks.expected_result = until_nul(piece).substr(0, 128);
            taken = give(result_write_callback, piece, size, sinks.result);
        } else if (kind % 4 == 2) {
            sinks.expected_photo += piece;
            taken = give(photo_write_callback, piece, size, &sinks.photo);
        } else {
            sinks.headers.headers.push_back(piece);
            check(give(http_status_code_checker, piece, size, nullptr) == piece.size(),
                  "no status is wanted");
            taken = give(http_status_code_checker, piece, size, &sinks.status);
        }
        check(taken == piece.size(), "a piece is taken whole");
        check_sinks(sinks);
    }
}

// The key of the last header line with one: its first character, then decimal digits.
std::optional<std::string> reference_key(const wire::Answer &answer) {
    std::optional<std::string> key;
    for (const std::string &line : answer.headers) {
        const std::string text = until_nul(line);
        const size_t at = text.find("Session=");
        if (at == std::string::npos) continue;
        key = text.substr(at + 8, 1);
        for (size_t i = at + 9; i < text.size() && text[i] >= '0' && text[i] <= '9'; i++) *key += text[i];
    }
    return key;
}

void check_login(const wire::Answer &answer) {
    std::string body;
    for (const std::string &piece : answer.pieces) body += until_nul(piece);
    const auto key = reference_key(answer);
    const bool succeeds = !answer.lost && key;
    wire::configure();
    unlink(kFirmwareVersion);
    wire::script({answer});
    check((login() == 0) == succeeds, "a login succeeds with an answer that holds a key");
    check(wire::posted()[0] == "password=secret", "the login posts the password");
    // Of a key that a line cannot hold nothing is stored.
    const bool storable = succeeds && (key->empty() || !is_space((*key)[0]));
    if (storable) check(conf_value("SESSION_KEY") == *key, "the key is stored as it came");
    if (!succeeds) check(conf_value("SESSION_KEY") == "12345", "without one the configuration stays");
    check(conf_value("PASSWORD") == "secret", "and the rest of the configuration stays");
    const auto version = find_xml_value(body, "FWVER");
    const bool written = access(kFirmwareVersion, F_OK) == 0;
    check(written == (succeeds && version), "the firmware version is kept where the login tells one");
    if (written) check(read_file(kFirmwareVersion) == *version, "it is gathered from all pieces");
}

}  // namespace

void prepare() {}

void try_input(Input input) {
    give_pieces(input);
    check_login(wire::take_answer(input));
}
