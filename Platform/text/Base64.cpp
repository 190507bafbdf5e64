#include "Platform/text/Base64.h"

#include <algorithm>
#include <cstdint>

namespace vesko {
namespace {

constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// The bytes that two to four characters stand for, without padding, are put at the end of `decoded`; false when a
/// character is none of the alphabet, or stands for more than whole bytes.
bool appendGroup(std::string_view group, std::string& decoded) {
  std::uint32_t bits = 0;
  for (const char character : group) {
    const auto value = alphabet.find(character);
    if (value == alphabet.npos) return false;
    bits = bits << 6 | static_cast<std::uint32_t>(value);
  }
  bits <<= 6 * (4 - group.size());
  for (std::size_t index = 1; index < group.size(); ++index) {
    decoded += static_cast<char>(bits >> 16 & 0xFF);
    bits <<= 8;
  }
  return (bits & 0xFFFFFF) == 0;
}

}  // namespace

std::string base64Encoded(std::string_view bytes) {
  std::string encoded;
  encoded.reserve((bytes.size() + 2) / 3 * 4);
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
    const auto group = bytes.substr(0, 3);
    std::uint32_t bits = 0;
    for (const char byte : group) bits = bits << 8 | static_cast<std::uint8_t>(byte);
    bits <<= 8 * (3 - group.size());
    for (std::size_t index = 0; index < 4; ++index) {
      encoded += index <= group.size() ? alphabet[bits >> (18 - 6 * index) & 63] : '=';
    }
  }
  return encoded;
}

std::optional<std::string> base64Decoded(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::string decoded;
  decoded.reserve(text.size() / 4 * 3);
  for (; !text.empty(); text.remove_prefix(4)) {
    auto group = text.substr(0, 4);
    // Only the last group may be padded.
    const std::size_t shortest = text.size() == 4 ? 2 : 4;
    while (group.size() > shortest && group.back() == '=') group.remove_suffix(1);
    if (!appendGroup(group, decoded)) return std::nullopt;
  }
  return decoded;
}

}  // namespace vesko
