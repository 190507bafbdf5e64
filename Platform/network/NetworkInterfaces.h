#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vesko {

/// One IPv4 address of a network interface; an interface with several addresses has several.
struct InterfaceAddress {
  std::string name;     ///< the interface's, such as eth0
  std::string address;  ///< dotted decimal
  std::string netmask;  ///< dotted decimal; empty when the system tells none
  bool isUp = false;
  bool isRunning = false;  ///< has a link
  bool isLoopback = false;

  /// True when other machines may be reached by it: it is up and running, and neither loopback nor without a netmask.
  [[nodiscard]] bool isUsable() const noexcept { return isUp && isRunning && !isLoopback && !netmask.empty(); }

  friend bool operator==(const InterfaceAddress&, const InterfaceAddress&) = default;
};

/// What an interface leads to.
enum class InterfaceKind : std::uint8_t { ordinary, wireless, bridge, container, tunnel };

namespace NetworkInterfaces {

/// All IPv4 addresses in the order in which the system lists them (getifaddrs(3)); empty when it cannot. Asks the
/// system anew with each call. Any thread.
[[nodiscard]] std::vector<InterfaceAddress> all();

/// What the interface `name` is, by what the system (/sys/class/net) and its name tell. Any thread.
[[nodiscard]] InterfaceKind kindOf(const std::string& name);

}  // namespace NetworkInterfaces
}  // namespace vesko
