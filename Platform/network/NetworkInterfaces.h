#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vesko {

/// One IPv4 address of a network interface. An interface with several addresses appears several times.
struct InterfaceAddress {
  std::string name;     ///< of the interface, such as eth0
  std::string address;  ///< dotted decimal
  std::string netmask;  ///< dotted decimal; empty when the system knows none
  bool isUp = false;
  bool isRunning = false;  ///< it has a link
  bool isLoopback = false;

  /// True when other machines may be reached through it: it is up, running, not loopback, and has a netmask.
  [[nodiscard]] bool isUsable() const noexcept { return isUp && isRunning && !isLoopback && !netmask.empty(); }

  friend bool operator==(const InterfaceAddress&, const InterfaceAddress&) = default;
};

/// What kind of network an interface belongs to.
enum class InterfaceKind : std::uint8_t { ordinary, wireless, bridge, container, tunnel };

namespace NetworkInterfaces {

/// All IPv4 addresses in the system's order (getifaddrs(3)); empty when it cannot list them. Each call asks the system
/// again. Any thread.
[[nodiscard]] std::vector<InterfaceAddress> all();

/// The kind of the interface `name`, according to its name and to the system (/sys/class/net). Any thread.
[[nodiscard]] InterfaceKind kindOf(const std::string& name);

}  // namespace NetworkInterfaces
}  // namespace vesko
