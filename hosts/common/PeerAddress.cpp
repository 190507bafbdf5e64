#include "hosts/common/PeerAddress.h"

#include <charconv>

namespace vesko {
namespace {

/// The number written by all of `text` in decimal, not above `maximum`; none otherwise.
std::optional<unsigned> parseNumber(std::string_view text, unsigned maximum) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > maximum) return std::nullopt;
  if (text.size() > 1 && text.front() == '0') return std::nullopt;
  return number;
}

bool isDottedAddress(std::string_view text) {
  for (int octet = 1; octet < 4; ++octet) {
    const auto dot = text.find('.');
    if (dot == std::string_view::npos || !parseNumber(text.substr(0, dot), 255)) return false;
    text.remove_prefix(dot + 1);
  }
  return parseNumber(text, 255).has_value();
}

}  // namespace

std::optional<PeerAddress> parsePeerAddress(std::string_view text, std::uint16_t defaultPort) {
  PeerAddress address{std::string(text), defaultPort};
  if (const auto colon = text.find(':'); colon != std::string_view::npos) {
    const auto port = parseNumber(text.substr(colon + 1), 65535);
    if (!port || *port == 0) return std::nullopt;
    address = {std::string(text.substr(0, colon)), static_cast<std::uint16_t>(*port)};
  }
  if (!isDottedAddress(address.ip)) return std::nullopt;
  return address;
}

}  // namespace vesko
