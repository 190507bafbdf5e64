#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vesko {

/// Where transfers to one machine connect to.
struct PeerAddress {
  std::string ip;  ///< IPv4, dotted decimal
  std::uint16_t port = 0;
  friend bool operator==(const PeerAddress&, const PeerAddress&) = default;
};

/// The address that `text` writes out, "192.0.2.7" or "192.0.2.7:5000"; none when it is anything else. Octets are
/// decimal without leading zeros, which some programs would take for octal; a port is 1 to 65535.
[[nodiscard]] std::optional<PeerAddress> parsePeerAddress(std::string_view text, std::uint16_t defaultPort);

/// What is wrong with `text` where it is clearly meant as an address; none where nothing is, and where it is something
/// else: names may hold anything, so that "22.04" is left to be part of one.
[[nodiscard]] std::optional<std::string> complaintAboutAddress(std::string_view text);

}  // namespace vesko
