#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/network/NetworkInterfaces.h"

namespace vesko {

/// A packet that a firewall is asked about: what another machine of the local network begins with.
struct FirewallProbe {
  bool isUdp = false;          ///< a datagram to everybody; else the first packet of a TCP connection to us
  std::uint16_t port = 0;      ///< ours
  InterfaceAddress interface;  ///< where it comes in; with a netmask
};

enum class Passage : std::uint8_t { accepted, dropped, unclear };

struct FirewallVerdict {
  Passage passage = Passage::unclear;
  std::string chain;      ///< when dropped: family, table and chain that the packet does not get past
  bool isPolicy = false;  ///< it is dropped since no rule lets it pass, rather than by one that matches

  friend bool operator==(const FirewallVerdict&, const FirewallVerdict&) = default;
};

/// What the rules that `nft -j list ruleset` prints do to each of `probes`; none when `ruleset` is not such a list.
/// What is not understood of a rule is taken to match or not, so that the verdict is unclear rather than wrong. Any
/// thread.
[[nodiscard]] std::optional<std::vector<FirewallVerdict>> judgeNftables(std::string_view ruleset,
                                                                        const std::vector<FirewallProbe>& probes);

}  // namespace vesko
