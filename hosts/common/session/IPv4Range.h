#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vesko {

/// The IPv4 addresses from `first` to `last`, as numbers.
struct IPv4Range {
  std::uint32_t first = 0;
  std::uint32_t last = 0;

  [[nodiscard]] bool contains(std::uint32_t address) const noexcept { return first <= address && address <= last; }
};

/// The address or network that `text` writes out, "192.0.2.7" or "192.0.2.0/24"; none when it is anything else.
[[nodiscard]] std::optional<IPv4Range> parseNetwork(std::string_view text) noexcept;

}  // namespace vesko
