#include "Platform/network/IPv4Address.h"

#include "Platform/text/Numbers.h"

namespace vesko {

std::optional<std::uint8_t> parseIPv4Octet(std::string_view text) noexcept {
  return text.size() > 1 && text.front() == '0' ? std::nullopt : wholeNumber<std::uint8_t>(text);
}

std::optional<std::uint32_t> parseIPv4(std::string_view text) noexcept {
  std::uint32_t address = 0;
  for (int dots = 3; dots >= 0; --dots) {
    const auto length = dots > 0 ? text.find('.') : text.size();
    const auto octet = parseIPv4Octet(text.substr(0, length));
    if (!octet || length == std::string_view::npos) return std::nullopt;
    address = address << 8U | *octet;
    if (dots > 0) text.remove_prefix(length + 1);
  }
  return address;
}

std::string textOfIPv4(std::uint32_t address) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += std::to_string(address >> static_cast<unsigned>(shift) & 0xFFU);
    if (shift > 0) text += '.';
  }
  return text;
}

}  // namespace vesko
