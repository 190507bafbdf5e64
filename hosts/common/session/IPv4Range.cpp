#include "hosts/common/session/IPv4Range.h"

#include <charconv>
#include <system_error>

#include "Platform/text/Numbers.h"

namespace vesko {

std::optional<IPv4Range> networkRange(std::string_view address, std::uint32_t bits) noexcept {
  std::uint32_t value = 0;
  const char* at = address.data();
  const char* const end = at + address.size();
  for (int octet = 0; octet < 4; ++octet) {
    if (octet > 0 && (at == end || *at++ != '.')) return std::nullopt;
    std::uint8_t part = 0;
    const auto [next, error] = std::from_chars(at, end, part);
    // Some programs take what begins with a 0 for octal.
    if (error != std::errc() || (*at == '0' && next - at > 1)) return std::nullopt;
    value = value << 8U | part;
    at = next;
  }
  if (at != end || bits > 32) return std::nullopt;
  const std::uint32_t hosts = bits == 32 ? 0 : ~std::uint32_t{0} >> bits;
  return IPv4Range{value & ~hosts, value | hosts};
}

std::optional<IPv4Range> parseNetwork(std::string_view text) noexcept {
  const auto slash = text.find('/');
  if (slash == std::string_view::npos) return networkRange(text);
  const auto bits = wholeNumber<std::uint32_t>(text.substr(slash + 1));
  return bits ? networkRange(text.substr(0, slash), *bits) : std::nullopt;
}

}  // namespace vesko
