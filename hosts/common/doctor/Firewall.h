#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "hosts/common/doctor/Doctor.h"

namespace vesko {

/// The firewalls of this machine, as far as any of its users sees them: rules are for root alone to read.
struct Firewalls {
  bool hasUfw = false;        ///< switched on
  bool hasFirewalld = false;  ///< running
  bool hasNftables = false;   ///< loaded into the kernel, by one of the above or for rules of the machine's own
  bool hasIptables = false;   ///< the same of the rules before nftables
};

/// Reads the system's files below `root`. Any thread.
[[nodiscard]] Firewalls firewallsOf(const std::filesystem::path& root = "/");

/// Which firewalls may keep other machines from the service on port `port`, and what lets them in. `hearsOthers`: they
/// were heard on its UDP port, the one thing that can be tried without them. Pure; any thread.
[[nodiscard]] std::vector<Finding> findingsAboutFirewalls(const Firewalls& firewalls, std::uint16_t port,
                                                          bool hearsOthers);

}  // namespace vesko
