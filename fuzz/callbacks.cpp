// What libcurl calls: a reply's body and header in arbitrary pieces. Then a login on an arbitrary answer.
#include <unistd.h>

#include <cstring>

#include "agent/exchange.h"
#include "agent/loginout.h"
#include "agent/session_key.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/reply_text.h"
#include "exports.h"
#include "support/wire.h"
#include "z55cgi.h"

namespace {

constexpr char kFirmwareVersion[] = "/tmp/FWVER.txt";
constexpr char kCookie[] = "/tmp/cookie";

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

// What the configuration gives back of a key that a login has stored: a line of its own, cut to a key's
// buffer.
std::string reference_stored(const std::string &key) {
    std::string stored = key.substr(0, key.find_first_of("\r\n"));
    while (!stored.empty() && is_space(stored.back())) stored.pop_back();
    return stored;
}

void check_firmware_version(const wire::Answer &answer, bool succeeds) {
    std::string body;
    for (const std::string &piece : answer.pieces) body += until_nul(piece);
    const auto version = find_xml_value(body, "FWVER");
    const bool written = access(kFirmwareVersion, F_OK) == 0;
    check(written == (succeeds && version), "the firmware version is kept where the login tells one");
    if (written) check(read_file(kFirmwareVersion) == *version, "it is gathered from all pieces");
}

void check_login(const wire::Answer &answer) {
    const auto key = reference_key(answer);
    const bool succeeds = !answer.lost && key;
    wire::configure();
    unlink(kFirmwareVersion);
    wire::script({answer});
    check((login() == 0) == succeeds, "a login succeeds with an answer that holds a key");
    check(wire::posted()[0] == "password=secret", "the login posts the password");
    check(conf_value("SESSION_KEY") == (succeeds ? reference_stored(*key) : "12345"),
          "the key is stored as it came; without one the configuration stays");
    check(conf_value("PASSWORD") == "secret", "and the rest of the configuration stays");
    check_firmware_version(answer, succeeds);
}

// The start-up's: it tries until there is a usable key.
void check_session_key(const wire::Answer &answer) {
    const auto first = reference_key(answer);
    std::string key = first && !answer.lost ? reference_stored(*first).substr(0, kSessionKeySize - 1) : "";
    if (key.empty() || key.rfind("(null)", 0) == 0) key = "77";
    wire::configure();
    wire::script({answer, {.headers = {"Set-Cookie: Session=77;"}}});
    check(getSessionKey(session_key_buffer) == 0, "a key comes in the end");
    check(session_key_buffer == key, "the key is the first usable one");
    check(read_file(kCookie) == (" Set-Cookie: Session=" + key + "\n").substr(0, 63),
          "the cookie file holds it");
}

void check_requests(const wire::Answer &answer) {
    const auto piece = wire::reference_last_piece(answer);
    const bool succeeds = wire::reference_succeeds(answer);
    wire::script({answer, answer});
    const Reply got = curl_GET("http://camera/");
    check(bool(got) == (succeeds && piece), "a GET gives the reply of a success");
    if (got) check(*got == *piece, "a reply is its last piece");
    check((curl_POST("http://camera/", "body") == 0) == !answer.lost, "a POST succeeds whatever the status");
    check(std::string(response != nullptr ? response : "") == piece.value_or(""),
          "the reply to a POST is kept");
}

void check_header(const wire::Answer &answer) {
    for (const std::string &line : answer.headers) {
        const std::string text = until_nul(line);
        const auto key = getSessionKeyInHeader(text.c_str());
        check(key == reference_key({.headers = {line}}), "a line's key begins behind Session=");
    }
}

void check_without_configuration() {
    unlink(kConfPath);
    check(login() == -1, "without a configuration there is no login");
}

}  // namespace

void prepare() {
    wire::start_queue();
}

void try_input(Input input) {
    give_pieces(input);
    const wire::Answer answer = wire::take_answer(input);
    check_header(answer);
    check_login(answer);
    check_session_key(answer);
    check_requests(answer);
    load_login_settings();
    check(std::string(hostIP) == "camera" && std::string(password) == "secret",
          "the login's settings are loaded");
    check_without_configuration();
}
