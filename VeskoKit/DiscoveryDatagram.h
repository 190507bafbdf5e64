#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// The datagrams by which machines find each other: bytes to values and back. Pure functions; any thread.
//
// The first byte is the type: 1 hello to all, 2 hello to one, 3 goodbye, 4 hello to all with a port, 5 hello to one
// with a port. A hello goes on with the port where it has one (2 bytes, low byte first) and the sender's signature in
// UTF-8, which fills the rest; a goodbye with "Bye Bye".
namespace vesko {

/// "I am here", and who and where that is.
struct DiscoveryHello {
  bool isToAll = true;                ///< whoever hears it answers; an answer is to one, and so not answered
  std::optional<std::uint16_t> port;  ///< the sender's service port; none: the well-known one
  std::string signature;              ///< UTF-8

  friend bool operator==(const DiscoveryHello&, const DiscoveryHello&) = default;
};

/// "I am leaving."
struct DiscoveryGoodbye {
  friend bool operator==(const DiscoveryGoodbye&, const DiscoveryGoodbye&) = default;
};

using DiscoveryDatagram = std::variant<DiscoveryHello, DiscoveryGoodbye>;

/// Bytes of a signature; what is longer is cut, between two characters. Names are much shorter, and a table of 65,536
/// peers stays within what a machine can bear.
constexpr std::size_t signatureLimit = 4096;

[[nodiscard]] std::string encodeDiscoveryDatagram(const DiscoveryDatagram& datagram);

/// None when the bytes are no such datagram: empty, of another type, too short for its port, or not UTF-8.
[[nodiscard]] std::optional<DiscoveryDatagram> decodeDiscoveryDatagram(std::string_view bytes);

}  // namespace vesko
