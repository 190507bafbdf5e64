#include "Platform/network/InterfaceChanges.h"

#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>

#include "Platform/process/SystemError.h"
#include "Platform/sockets/SocketCalls.h"

namespace vesko {
namespace {

/// Messages read in one go before other work gets its turn: more than the system's own buffer holds.
constexpr int batch = 1024;

}  // namespace

InterfaceChanges::InterfaceChanges(std::error_code& error)
    : descriptor_(::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE)) {
  error.clear();
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
  if (!descriptor_ || ::bind(descriptor_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    error = lastSystemError();
    descriptor_.reset();
  }
}

/// What the messages say does not matter, so that the buffer may cut them short; and when the system had no room for
/// some, that tells of changes as well.
bool InterfaceChanges::take() {
  std::array<char, 256> beginning;
  bool isAny = false;
  for (int i = 0; i < batch; ++i) {
    std::error_code error;
    static_cast<void>(SocketCalls::receive(descriptor_.get(), beginning, error));
    if (error && error != std::errc::no_buffer_space) break;
    isAny = true;
  }
  return isAny;
}

}  // namespace vesko
