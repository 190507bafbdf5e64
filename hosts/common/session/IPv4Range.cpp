#include "hosts/common/session/IPv4Range.h"

#include <algorithm>

#include "Platform/network/IPv4Address.h"
#include "Platform/text/Numbers.h"

namespace vesko {

std::optional<IPv4Range> parseNetwork(std::string_view text) noexcept {
  const auto slash = std::min(text.find('/'), text.size());
  const auto address = parseIPv4(text.substr(0, slash));
  const auto bits = slash == text.size() ? 32 : wholeNumber<std::uint32_t>(text.substr(slash + 1));
  if (!address || !bits || *bits > 32) return std::nullopt;
  // A shift by all 32 bits would be undefined.
  const std::uint32_t rest = *bits == 32 ? 0 : ~std::uint32_t{0} >> *bits;
  return IPv4Range{*address & ~rest, *address | rest};
}

}  // namespace vesko
