#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace vesko {

/// What the operating system knows about this machine and its user. Each call asks the system again. Any thread.
class NetworkTools {
 public:
  /// An interface's name, its IPv4 address and its netmask, both in dotted-decimal form.
  using InterfaceEntry = std::array<std::string, 3>;

  NetworkTools() = delete;

  /// The computer's name as people see it: the pretty host name (machine-info(5)), else the host name, else
  /// "localhost".
  [[nodiscard]] static std::string getSCComputerName();

  /// The current user's account picture as PNG; none when there is no picture, or only one of more than 16 MiB or of
  /// more than 4,096 pixels in one direction. Reads and decodes a file, so it may take long.
  [[nodiscard]] static std::optional<std::string> getCBUserImage();

  /// The IPv4 addresses of the interfaces that are up, running and not loopback, in the system's order. An address
  /// without a netmask is left out. Empty when the system cannot list them.
  [[nodiscard]] static std::vector<InterfaceEntry> getIFAddresses();
};

}  // namespace vesko
