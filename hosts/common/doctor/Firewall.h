#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "hosts/common/doctor/Doctor.h"

namespace vesko {

/// The firewalls of this machine, as far as ordinary users can see them. Only root can read the rules.
struct Firewalls {
  bool hasUfw = false;        ///< enabled
  bool hasFirewalld = false;  ///< running
  bool hasNftables = false;   ///< loaded into the kernel, by one of the above or for other rules
  bool hasIptables = false;   ///< the same for the older iptables
};

/// Reads the files of the system below `root`; tests pass another folder. Any thread.
[[nodiscard]] Firewalls firewallsOf(const std::filesystem::path& root = "/");

/// Which firewalls may block the service on port `port`, and the commands that allow it. `hearsOthers`: other machines
/// were heard on the UDP port. That is all a check on this machine alone can prove: it needs a connection from another
/// machine to see whether the TCP ports are open. Pure; any thread.
[[nodiscard]] std::vector<Finding> findingsAboutFirewalls(const Firewalls& firewalls, std::uint16_t port,
                                                          bool hearsOthers);

}  // namespace vesko
