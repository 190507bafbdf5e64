#include "tests/support/RawPeer.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "Platform/process/SystemError.h"
#include "tests/support/RawDatagrams.h"

namespace vesko {
namespace {

constexpr int patience = 10;  // seconds

FileDescriptor checked(FileDescriptor descriptor, const char* what) {
  if (!descriptor) throw std::system_error(lastSystemError(), what);
  return descriptor;
}

FileDescriptor makeSocket() {
  return checked(FileDescriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), "socket");
}

template <class Value>
void setOption(int descriptor, int level, int name, const Value& value) {
  ::setsockopt(descriptor, level, name, &value, sizeof value);
}

}  // namespace

RawConnection::RawConnection(FileDescriptor descriptor) : descriptor_(std::move(descriptor)) {
  const timeval bound{.tv_sec = patience, .tv_usec = 0};
  setOption(descriptor_.get(), SOL_SOCKET, SO_RCVTIMEO, bound);
  setOption(descriptor_.get(), SOL_SOCKET, SO_SNDTIMEO, bound);
  setOption(descriptor_.get(), IPPROTO_TCP, TCP_NODELAY, 1);
}

RawConnection RawConnection::to(std::uint16_t port) {
  RawConnection connection(makeSocket());
  const sockaddr_in address = addressOf(port);
  const auto* const where = reinterpret_cast<const sockaddr*>(&address);
  // An interrupted attempt goes on by itself (connect(2)).
  if (::connect(connection.descriptor_.get(), where, sizeof address) != 0 && errno != EINTR) {
    throw std::system_error(lastSystemError(), "connect");
  }
  return connection;
}

bool RawConnection::send(std::string_view bytes, std::size_t pieceLength) {
  while (!bytes.empty()) {
    const auto piece = bytes.substr(0, pieceLength);
    const auto count =
        uninterrupted([&] { return ::send(descriptor_.get(), piece.data(), piece.size(), MSG_NOSIGNAL); });
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

std::string RawConnection::receive(std::size_t length) {
  std::string bytes;
  std::vector<char> buffer(256 * 1024);
  error_.clear();
  while (bytes.size() < length) {
    const auto most = std::min(buffer.size(), length - bytes.size());
    const auto count = uninterrupted([&] { return ::recv(descriptor_.get(), buffer.data(), most, 0); });
    if (count < 0) error_ = lastSystemError();
    if (count <= 0) break;
    bytes.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return bytes;
}

void RawConnection::endSending() const noexcept { ::shutdown(descriptor_.get(), SHUT_WR); }

void RawConnection::reset() noexcept {
  setOption(descriptor_.get(), SOL_SOCKET, SO_LINGER, linger{.l_onoff = 1, .l_linger = 0});
  descriptor_.reset();
}

RawListener::RawListener(bool listening, int backlog) : descriptor_(makeSocket()) {
  // Small, so that a sender soon has to wait for a receiver that does not read.
  setOption(descriptor_.get(), SOL_SOCKET, SO_RCVBUF, 256 * 1024);
  sockaddr_in address = addressOf(0);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(descriptor_.get(), generic, length) != 0 || (listening && ::listen(descriptor_.get(), backlog) != 0) ||
      ::getsockname(descriptor_.get(), generic, &length) != 0) {
    throw std::system_error(lastSystemError(), "listen");
  }
  port_ = ntohs(address.sin_port);
}

bool RawListener::hasWaiting() const {
  pollfd waiting{.fd = descriptor_.get(), .events = POLLIN, .revents = 0};
  return ::poll(&waiting, 1, 0) == 1;
}

RawConnection RawListener::accept() const {
  pollfd waiting{.fd = descriptor_.get(), .events = POLLIN, .revents = 0};
  if (uninterrupted([&] { return ::poll(&waiting, 1, patience * 1000); }) != 1)
    throw std::system_error(std::make_error_code(std::errc::timed_out));
  return RawConnection(checked(FileDescriptor(::accept4(descriptor_.get(), nullptr, nullptr, SOCK_CLOEXEC)), "accept"));
}

}  // namespace vesko
