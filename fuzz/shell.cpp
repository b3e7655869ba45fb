// What shell tools print: whether they fail, then the texts of netstat, ifconfig and df, each up to 0xFF.
// Then the camera's answer to who it is.
#include <arpa/inet.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "agent/network.h"
#include "agent/utils/conf_file.h"
#include "agent/utils/reply_text.h"
#include "exports.h"
#include "fake_os.h"
#include "fake_vendor.h"
#include "support/wire.h"

namespace {

constexpr size_t kMostText = 65536 + 1023;  // that is read of an output file

std::string routes, interfaces, card;
bool fails = false, ping_fails = false;
bool barred = false;  // folders of somebody else stand where the output files would

constexpr const char *kBars[] = {"gateway.txt", "/tmp/total", "/tmp/space"};

bool has(const std::string &text, const char *part) {
    return text.find(part) != std::string::npos;
}

// The tools; where the command sends their output to a file it goes there.
fake_os::ShellResult answer(const std::string &command) {
    const std::string &text = has(command, "netstat") ? routes : has(command, "df -m") ? card : interfaces;
    const size_t arrow = command.find(" > ");
    if (arrow != std::string::npos) write_file(command.c_str() + arrow + 3, text);
    return {fails || (ping_fails && command.starts_with("ping")) ? 256 : 0, text};
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// The address that begins with the line's first digit behind the default route's destination.
std::optional<std::string> reference_gateway(const std::string &line) {
    const size_t route = line.find("0.0.0.0");
    if (route > 9) return std::nullopt;
    size_t at = route + 7;
    while (at < line.size() && !is_digit(line[at])) at++;
    std::string text;
    int dots = 0;
    for (; at < line.size() && (dots < 3 || is_digit(line[at])); at++) {
        if (line[at] == '.') dots++;
        text += line[at];
    }
    in_addr address{};
    if (text.find('\0') != std::string::npos || inet_pton(AF_INET, text.c_str(), &address) != 1)
        return std::nullopt;
    return text;
}

std::optional<std::string> reference_default_gateway() {
    std::string line;
    for (size_t i = 0; !fails && !barred && i <= routes.size(); i++) {
        if (i < routes.size()) line += routes[i];
        if (i < routes.size() && routes[i] != '\n' && line.size() < 255) continue;
        if (const auto gateway = reference_gateway(line)) return gateway;
        line.clear();
    }
    return std::nullopt;
}

// The last line that a tool printed.
std::string reference_last_line() {
    if (fails) return "";
    std::string text = interfaces;
    if (!text.empty() && text.back() == '\n') text.pop_back();
    while (has(text, "\n")) text.erase(0, text.find('\n') + 1);
    return text;
}

std::string reference_mac() {
    std::string mac = reference_last_line().substr(0, 12);
    for (char &c : mac) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return mac;
}

// The first line up to the character before the last; the name where df said nothing; a C text of 129
// characters.
std::string reference_card_number(const std::string &name) {
    if (barred) return "ERROR";
    const std::string text = fails ? "" : card.substr(0, 130);
    std::string line;
    for (size_t i = 0; i + 1 < text.size(); i++) {
        line += text[i];
        if (text[i] == '\n') break;
    }
    return until_nul(line.empty() ? name : line);
}

void check_card(const char *name) {
    char *value = nullptr;
    const int length = get_device_status(name, &value);
    check(value != nullptr && value == reference_card_number(name), "a card's number is df's first line");
    check(length == static_cast<int>(std::strlen(value)), "the reader returns the text's length");
    std::free(value);
}

void check_connection(bool wlan, const std::optional<std::string> &gateway) {
    const bool answers = wlan && gateway && !ping_fails;
    check(ping_default_gateway() == (answers ? 0 : -1), "the gateway is asked where there is one");
    fake_vendor::reset();
    notify_Z55_connection_status(1);
    check(fake_vendor::calls() == Texts{answers ? "send_cloud_status(3)" : "send_cloud_status(2)"},
          "a lost cloud is the local network's where the gateway does not answer");
    for (const std::string &command : fake_os::shell_commands()) {
        if (command.rfind("ping", 0) != 0) continue;
        check(gateway && command == "ping -c1 -s1 " + *gateway,
              "nothing but an address becomes part of a command");
    }
}

void check_uuid(const wire::Answer &answer) {
    wire::configure();
    wire::script({answer, {.headers = {"HTTP/1.1 200"}, .pieces = {"<UUID>second</UUID>"}}});
    const auto reply = wire::reference_succeeds(answer) ? wire::reference_last_piece(answer) : std::nullopt;
    const auto first = reply ? find_xml_value(*reply, "UUID") : std::nullopt;
    check(get_uuid() == first.value_or("second"), "the camera is asked for its UUID until it answers");
    unlink(kConfPath);
    check(!get_uuid(), "without a configuration there is no UUID");
}

}  // namespace

void prepare() {
    wire::start_queue();
}

void try_input(Input input) {
    fake_os::reset();
    fake_os::on_shell(answer);
    const uint8_t choice = input.byte();
    fails = choice % 4 == 1;
    ping_fails = choice % 4 == 2;
    barred = choice % 4 == 3;
    routes = input.text();
    interfaces = input.text();
    card = input.text();
    if (routes.size() > kMostText) return;
    for (const char *path : kBars) {
        unlink(path);
        if (barred) mkdir(path, 0755);
    }
    const auto gateway = reference_default_gateway();
    check(get_default_gateway() == gateway, "the gateway is the default route's");
    check(get_MAC_uppercase() == reference_mac(),
          "the MAC is the last line's first 12 characters in upper case");
    const bool wlan = has(reference_last_line(), "wlan0");
    check(wlan0_exists() == (wlan ? 1 : 0), "wlan0 exists where the last line names it");
    check_connection(wlan, gateway);
    check_card("sdcardquota");
    check_card("Sdsize");
    fake_vendor::reset();
    notify_Z55_connection_status(0);
    check(fake_vendor::calls() == Texts{"send_cloud_status(1)"}, "a cloud that is there is reported");
    check_uuid(wire::take_answer(input));
    for (const char *path : kBars) rmdir(path);
}
