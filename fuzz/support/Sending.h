#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/files/FileDescriptor.h"
#include "Platform/process/SystemError.h"
#include "fuzz/support/Check.h"

/// The other side of a connection, which waits for what it wants. The alarm by which a fuzzer watches over its time may
/// interrupt any call.
namespace vesko::fuzz {

/// No answer is waited for longer: the input is kept as one that hangs, long before the fuzzer's own time-out.
constexpr timeval patience{15, 0};

/// False when the other side has closed already.
inline bool sendAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = uninterrupted([&] { return ::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL); });
    if (count <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// The same in two pieces, for a quarter of the choices. The other side is given the time to take the first one alone;
/// it mostly does.
inline void sendInPieces(int descriptor, std::string_view bytes, std::uint8_t choice) {
  constexpr useconds_t pause = 100;
  if (choice % 4 == 0) {
    const auto first = bytes.substr(0, bytes.size() * choice / 256);
    bytes.remove_prefix(first.size());
    if (sendAll(descriptor, first)) ::usleep(pause);
  }
  (void)sendAll(descriptor, bytes);
}

inline std::string receiveAll(int descriptor) {
  std::string received;
  std::array<char, 16384> buffer;
  ssize_t count = 0;
  while ((count = uninterrupted([&] { return ::recv(descriptor, buffer.data(), buffer.size(), 0); })) > 0) {
    received.append(buffer.data(), static_cast<std::size_t>(count));
  }
  check(count == 0 || errno != EAGAIN, "the connection is closed by the other side");
  return received;
}

/// What comes back until the end, after `bytes` and the end of them have been sent.
inline std::string exchange(int descriptor, std::string_view bytes, std::uint8_t choice) {
  ::setsockopt(descriptor, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  sendInPieces(descriptor, bytes, choice);
  ::shutdown(descriptor, SHUT_WR);
  return receiveAll(descriptor);
}

inline sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// Closing it is a reset, which leaves nothing behind: of thousands a second, the system would run out.
inline void closeByReset(int descriptor) {
  const linger none{1, 0};
  ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

}  // namespace vesko::fuzz
