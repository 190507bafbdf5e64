#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// The datagrams of discovery: encoding and decoding. Pure functions; any thread.
//
//     byte 0  type: 1 hello to all, 2 hello to one, 3 goodbye, 4 hello to all with a port, 5 hello to one with a port
//     types 4 and 5: 2 bytes of port, little-endian
//     hellos: the sender's signature in UTF-8, up to the end
//     goodbye: "Bye Bye"
namespace vesko {

/// "I am here": the sender's signature and port.
struct DiscoveryHello {
  bool isToAll = true;                ///< receivers answer it; an answer is a hello to one, which is not answered
  std::optional<std::uint16_t> port;  ///< the sender's service port; none: the well-known one
  std::string signature;              ///< UTF-8

  friend bool operator==(const DiscoveryHello&, const DiscoveryHello&) = default;
};

/// "I am leaving."
struct DiscoveryGoodbye {
  friend bool operator==(const DiscoveryGoodbye&, const DiscoveryGoodbye&) = default;
};

using DiscoveryDatagram = std::variant<DiscoveryHello, DiscoveryGoodbye>;

/// In bytes; a longer signature is cut between two characters. Real ones are much shorter. The bound keeps the
/// signatures in a table of 65,536 peers within 256 MiB.
constexpr std::size_t signatureLimit = 4096;

[[nodiscard]] std::string encodeDiscoveryDatagram(const DiscoveryDatagram& datagram);

/// None when the bytes are no such datagram: empty, of another type, too short for the port, or a hello that is not
/// UTF-8.
[[nodiscard]] std::optional<DiscoveryDatagram> decodeDiscoveryDatagram(std::string_view bytes);

}  // namespace vesko
