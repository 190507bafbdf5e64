#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vesko {

enum class PortProtocol : std::uint8_t { udp, tcp };

/// A program that holds a port.
struct PortHolder {
  std::string user;         ///< login name, or the number of a user that the account database does not know
  bool isOurs = false;      ///< this process runs as the same user or as root
  int process = 0;          ///< 0: not known, because this process may not look
  std::string processName;  ///< as the process calls itself, so it may be any bytes; empty: not known

  friend bool operator==(const PortHolder&, const PortHolder&) = default;
};

namespace PortHolders {

/// Who has bound the local UDP port, or listens on the local TCP port: on any IPv4 address, or on all IPv6 addresses,
/// which includes IPv4. Empty when nobody does or the system does not tell. Any thread.
[[nodiscard]] std::vector<PortHolder> of(PortProtocol protocol, std::uint16_t port);

/// One socket in a table of the system.
struct SocketEntry {
  std::uint32_t user = 0;
  std::uint64_t inode = 0;

  friend bool operator==(const SocketEntry&, const SocketEntry&) = default;
};

/// The sockets that hold `port`, from `table`, the text of /proc/net/udp, udp6, tcp or tcp6 (proc_net(5)). Lines that
/// are no entries are skipped. Any thread.
[[nodiscard]] std::vector<SocketEntry> entriesIn(std::string_view table, PortProtocol protocol, std::uint16_t port);

}  // namespace PortHolders
}  // namespace vesko
