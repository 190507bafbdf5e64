#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vesko {

/// The address in dotted-decimal form, with the first octet as the highest byte. None when `text` is anything else.
/// Octets with leading zeros are refused, because some programs read them as octal numbers. Any thread.
[[nodiscard]] std::optional<std::uint32_t> parseIPv4(std::string_view text) noexcept;

/// One of the four numbers of such a text. Any thread.
[[nodiscard]] std::optional<std::uint8_t> parseIPv4Octet(std::string_view text) noexcept;

/// `address` in dotted-decimal form. Any thread.
[[nodiscard]] std::string textOfIPv4(std::uint32_t address);

}  // namespace vesko
