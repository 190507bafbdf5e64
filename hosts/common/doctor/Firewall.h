#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/doctor/Nftables.h"

namespace vesko {

/// The zone of firewalld that an interface is in.
struct FirewalldZone {
  std::string interface;
  std::string name;
  std::string ports;  ///< those it lets in, as `firewall-cmd --list-ports` prints them
};

/// What this user can read of this machine's firewalls.
struct FirewallFacts {
  enum class Access : std::uint8_t { absent, refused, granted };

  Access nftables = Access::absent;     ///< absent: there is no program to ask
  std::string ruleset;                  ///< when granted, what `nft -j list ruleset` prints
  bool hasLegacyRules = false;          ///< there may be rules of the kind before nftables, which nothing here reads
  std::string ufwSettings;              ///< /etc/ufw/ufw.conf
  std::string ufwDefaults;              ///< /etc/default/ufw
  std::optional<std::string> ufwRules;  ///< /etc/ufw/user.rules
  bool isFirewalldRunning = false;
  std::vector<FirewalldZone> zones;  ///< when it runs and tells

  [[nodiscard]] bool isUfwActive() const;
};

/// Reads files and asks the firewalls' programs, which takes seconds at worst. Any thread.
[[nodiscard]] FirewallFacts readFirewallFacts(const std::vector<std::string>& interfaces);

/// What the rules that users have given to ufw, and where none fits its policy, do to `probe`; `rules` and `defaults`
/// are the texts of its files. Any thread.
[[nodiscard]] Passage judgeUfw(std::string_view rules, std::string_view defaults, const FirewallProbe& probe);

/// True when `ports`, such as "4644/udp 5000-5010/tcp", include that of `probe`. Any thread.
[[nodiscard]] bool includesPort(std::string_view ports, const FirewallProbe& probe);

}  // namespace vesko
