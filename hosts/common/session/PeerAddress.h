#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vesko {

/// Address and port that transfers to one machine connect to.
struct PeerAddress {
  std::string ip;  ///< IPv4, dotted decimal
  std::uint16_t port = 0;
  friend bool operator==(const PeerAddress&, const PeerAddress&) = default;
};

/// Parses "192.0.2.7" or "192.0.2.7:5000"; none for anything else. Octets are decimal without leading zeros, because
/// some programs read "010" as octal; a port is 1 to 65535. Any thread.
[[nodiscard]] std::optional<PeerAddress> parsePeerAddress(std::string_view text, std::uint16_t defaultPort);

/// What is wrong with `text` when it is clearly meant as an address. None for a valid address and for anything that may
/// be part of a name, such as "22.04". Any thread.
[[nodiscard]] std::optional<std::string> complaintAboutAddress(std::string_view text);

}  // namespace vesko
