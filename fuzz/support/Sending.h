#pragma once

#include <unistd.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/support/Check.h"
#include "tests/support/RawPeer.h"

namespace vesko::fuzz {

/// Sends all bytes; in two pieces for a quarter of the choices. The other side is given the time to take the first one
/// alone; it mostly does.
inline void sendInPieces(RawConnection& connection, std::string_view bytes, std::uint8_t choice) {
  constexpr useconds_t pause = 100;
  if (choice % 4 == 0) {
    const auto first = bytes.substr(0, bytes.size() * choice / 256);
    bytes.remove_prefix(first.size());
    if (connection.send(first)) ::usleep(pause);
  }
  connection.send(bytes);
}

/// What comes until the other side closes.
inline std::string receiveAll(RawConnection& connection) {
  auto received = connection.receiveAll();
  check(connection.error() != std::errc::resource_unavailable_try_again, "the connection is closed by the other side");
  return received;
}

}  // namespace vesko::fuzz
