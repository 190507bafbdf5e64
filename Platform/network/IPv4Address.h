#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vesko {

/// The address that `text` writes out in dotted-decimal form, its first octet the highest; none when it is anything
/// else. Octets have no leading zeros, which some programs would take for octal. Any thread.
[[nodiscard]] std::optional<std::uint32_t> parseIPv4(std::string_view text) noexcept;

/// One of the four numbers of such a text. Any thread.
[[nodiscard]] std::optional<std::uint8_t> parseIPv4Octet(std::string_view text) noexcept;

/// `address` in dotted-decimal form. Any thread.
[[nodiscard]] std::string textOfIPv4(std::uint32_t address);

}  // namespace vesko
