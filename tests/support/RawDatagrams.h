#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "Platform/files/FileDescriptor.h"
#include "Platform/process/SystemError.h"

namespace vesko {

constexpr auto loopback = "127.0.0.1";

/// A port of `ip` (dotted decimal), in the system's form.
inline sockaddr_in addressOf(std::uint16_t port, const char* ip = loopback) noexcept {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  ::inet_pton(AF_INET, ip, &address.sin_addr);
  return address;
}

/// What a service is told of where a datagram comes from: bytes of the system's form. `ip`: in the machine's byte
/// order.
inline std::string senderAddress(std::uint32_t ip) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(ip);
  return {reinterpret_cast<const char*>(&address), sizeof address};
}

/// A UDP socket on this machine, in blocking calls of ten seconds at most.
class RawDatagrams {
 public:
  /// Takes `port`, or a free one for 0.
  explicit RawDatagrams(std::uint16_t port = 0, const char* ip = loopback)
      : descriptor_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    constexpr timeval patience{.tv_sec = 10, .tv_usec = 0};
    check(::setsockopt(descriptor_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), "SO_RCVTIMEO");
    sockaddr_in address = addressOf(port, ip);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    check(::bind(descriptor_.get(), generic, length), "bind");
    check(::getsockname(descriptor_.get(), generic, &length), "getsockname");
    port_ = ntohs(address.sin_port);
  }

  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }

  void send(std::string_view bytes, std::uint16_t port, const std::string& ip = loopback) const {
    const sockaddr_in to = addressOf(port, ip.c_str());
    const auto* const generic = reinterpret_cast<const sockaddr*>(&to);
    check(::sendto(descriptor_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL, generic, sizeof to), "sendto");
  }

  /// The next datagram; throws when none comes.
  [[nodiscard]] std::string receive() {
    std::string bytes(std::size_t{64} * 1024, '\0');
    sockaddr_in from{};
    socklen_t length = sizeof from;
    auto* const generic = reinterpret_cast<sockaddr*>(&from);
    const ssize_t count = ::recvfrom(descriptor_.get(), bytes.data(), bytes.size(), 0, generic, &length);
    check(count, "recvfrom");
    bytes.resize(static_cast<std::size_t>(count));
    senderPort_ = ntohs(from.sin_port);
    return bytes;
  }

  /// Where the last datagram came from.
  [[nodiscard]] std::uint16_t senderPort() const noexcept { return senderPort_; }

  /// True when nothing has arrived that was not received: a datagram to itself is then the next one. Otherwise what is
  /// next is lost.
  [[nodiscard]] bool isEmpty() {
    constexpr std::string_view marker = "nothing else is there";
    send(marker, port_);
    return receive() == marker && senderPort_ == port_;
  }

 private:
  static void check(ssize_t result, const char* what) {
    if (result < 0) throw std::system_error(lastSystemError(), what);
  }

  FileDescriptor descriptor_;
  std::uint16_t port_ = 0;
  std::uint16_t senderPort_ = 0;
};

}  // namespace vesko
