// The device's own network state and identity, from shell tools and the camera. Any thread; each blocks for
// its commands (61 s each at most) or requests. A command that fails has said nothing.
#ifndef Z55_AGENT_NETWORK_H
#define Z55_AGENT_NETWORK_H

#include <optional>
#include <string>

// The device's UUID as the camera tells it. Asks again without a pause or limit until the camera answers;
// nothing only when the configuration cannot be read.
[[nodiscard]] std::optional<std::string> get_uuid();

// The Wi-Fi hardware address: at most 12 hexadecimal digits in upper case, without colons; "" when it cannot
// be had.
std::string get_MAC_uppercase();

// The default route's gateway, a dotted IPv4 address and nothing else; nothing when there is none.
[[nodiscard]] std::optional<std::string> get_default_gateway();

// 1 when ifconfig lists wlan0, else 0.
[[nodiscard]] int wlan0_exists();

// One ping of the default gateway: 0 when it answered, else -1.
[[nodiscard]] int ping_default_gateway();

#endif
