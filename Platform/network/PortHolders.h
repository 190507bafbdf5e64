#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vesko {

enum class PortProtocol : std::uint8_t { udp, tcp };

/// Who keeps a port from others.
struct PortHolder {
  std::string user;         ///< login name; the number of one that the account database does not know
  bool isOurs = false;      ///< this process runs as that user, or as the superuser
  int process = 0;          ///< 0: not known, since this process may not look
  std::string processName;  ///< as the process gives it, which may be any bytes; empty: not known

  friend bool operator==(const PortHolder&, const PortHolder&) = default;
};

namespace PortHolders {

/// Those who have bound a UDP socket to the local port, or have one listen for TCP connections there, on any address
/// of IPv4 or, since that takes IPv4 along, on all of IPv6. Empty: nobody, or the system does not tell. Any thread.
[[nodiscard]] std::vector<PortHolder> of(PortProtocol protocol, std::uint16_t port);

/// One socket in a table of the system's.
struct SocketEntry {
  std::uint32_t user = 0;
  std::uint64_t inode = 0;

  friend bool operator==(const SocketEntry&, const SocketEntry&) = default;
};

/// The sockets that hold `port` as `table`, the text of /proc/net/udp, udp6, tcp or tcp6 (proc_net(5)), lists them;
/// lines that are not such entries are passed over. Any thread.
[[nodiscard]] std::vector<SocketEntry> entriesIn(std::string_view table, PortProtocol protocol, std::uint16_t port);

}  // namespace PortHolders
}  // namespace vesko
