#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vesko {

/// The IPv4 addresses from `first` to `last`, their first octet the highest.
struct IPv4Range {
  std::uint32_t first = 0;
  std::uint32_t last = 0;

  [[nodiscard]] bool contains(const IPv4Range& other) const noexcept {
    return first <= other.first && other.last <= last;
  }
};

/// An IPv4 address, or the network of that address and that many leading bits; none when `address` is no dotted-decimal
/// address or `bits` is above 32.
[[nodiscard]] std::optional<IPv4Range> networkRange(std::string_view address, std::uint32_t bits = 32) noexcept;

/// The address or network that `text` writes out, "192.0.2.7" or "192.0.2.0/24"; none when it is anything else.
[[nodiscard]] std::optional<IPv4Range> parseNetwork(std::string_view text) noexcept;

}  // namespace vesko
