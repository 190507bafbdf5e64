#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vesko {

/// The IPv4 addresses from `first` to `last`, both included, in the byte order of the host.
struct IPv4Range {
  std::uint32_t first = 0;
  std::uint32_t last = 0;

  [[nodiscard]] bool contains(std::uint32_t address) const noexcept { return first <= address && address <= last; }
};

/// Parses an address or a network, "192.0.2.7" or "192.0.2.0/24"; none for anything else. Bits of the address beyond
/// the prefix are ignored: "192.0.2.7/24" is the same network.
[[nodiscard]] std::optional<IPv4Range> parseNetwork(std::string_view text) noexcept;

}  // namespace vesko
