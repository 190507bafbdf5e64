#include "VeskoKit/DiscoveryDatagram.h"

#include <utility>

#include "Platform/text/TextEncoding.h"

namespace vesko {

namespace {

constexpr char helloToAll = 1;
constexpr char helloToOne = 2;
constexpr char goodbye = 3;
constexpr char helloToAllWithPort = 4;
constexpr char helloToOneWithPort = 5;

/// Receivers do not look at it: the type says that it is a goodbye.
constexpr std::string_view farewell = "Bye Bye";

constexpr std::size_t portLength = 2;

std::string encode(const DiscoveryHello& hello) {
  std::string bytes;
  if (hello.port) {
    bytes += hello.isToAll ? helloToAllWithPort : helloToOneWithPort;
    bytes += static_cast<char>(*hello.port & 0xFFU);
    bytes += static_cast<char>(*hello.port >> 8U);
  } else {
    bytes += hello.isToAll ? helloToAll : helloToOne;
  }
  return bytes += beginningOfUtf8(hello.signature, signatureLimit);
}

std::string encode(const DiscoveryGoodbye& /*goodbye*/) { return goodbye + std::string(farewell); }

std::optional<std::uint16_t> takePort(std::string_view& bytes) {
  if (bytes.size() < portLength) return std::nullopt;
  const auto low = static_cast<unsigned char>(bytes[0]);
  const auto high = static_cast<unsigned char>(bytes[1]);
  bytes.remove_prefix(portLength);
  return static_cast<std::uint16_t>(low | high << 8U);
}

/// A signature beyond the limit is cut rather than refused: the peer is there, whatever it calls itself.
std::optional<DiscoveryDatagram> decodeHello(bool isToAll, bool hasPort, std::string_view rest) {
  DiscoveryHello hello{isToAll, std::nullopt, {}};
  if (hasPort) {
    hello.port = takePort(rest);
    if (!hello.port) return std::nullopt;
  }
  if (!isValidUtf8(rest)) return std::nullopt;
  hello.signature = beginningOfUtf8(rest, signatureLimit);
  return hello;
}

}  // namespace

std::string encodeDiscoveryDatagram(const DiscoveryDatagram& datagram) {
  return std::visit([](const auto& any) { return encode(any); }, datagram);
}

std::optional<DiscoveryDatagram> decodeDiscoveryDatagram(std::string_view bytes) {
  if (bytes.empty()) return std::nullopt;
  const std::string_view rest = bytes.substr(1);
  switch (bytes.front()) {
    case helloToAll:
      return decodeHello(true, false, rest);
    case helloToOne:
      return decodeHello(false, false, rest);
    case goodbye:
      return DiscoveryGoodbye();
    case helloToAllWithPort:
      return decodeHello(true, true, rest);
    case helloToOneWithPort:
      return decodeHello(false, true, rest);
    default:
      return std::nullopt;
  }
}

}  // namespace vesko
