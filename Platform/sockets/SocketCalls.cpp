#include "Platform/sockets/SocketCalls.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "Platform/files/FileHandle.h"
#include "Platform/network/IPv4Address.h"
#include "Platform/process/SystemError.h"
#include "Platform/user/Account.h"

namespace vesko::SocketCalls {

namespace {

/// Room for the answers of a few hundred machines at the same time: the system counts each datagram, however short, as
/// one or two thousand bytes. The system may grant less.
constexpr int datagramBufferBytes = 1024 * 1024;

template <class Call>
auto checked(Call call, std::error_code& error) {
  const auto result = uninterrupted(call);
  error = result < 0 ? lastSystemError() : std::error_code();
  return result;
}

template <class Call>
std::size_t counted(Call call, std::error_code& error) {
  const ssize_t count = checked(call, error);
  return count < 0 ? 0 : static_cast<std::size_t>(count);
}

void setOption(int descriptor, int level, int name, int value) noexcept {
  ::setsockopt(descriptor, level, name, &value, sizeof value);
}

sockaddr_in systemAddress(const Address& address) noexcept {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(address.port);
  result.sin_addr.s_addr = htonl(parseIPv4(address.ip).value_or(INADDR_ANY));
  return result;
}

std::string textOf(const sockaddr_in& address) { return textOfIPv4(ntohl(address.sin_addr.s_addr)); }

template <class Function>
int withAddress(const sockaddr_in& address, Function function) {
  return function(reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(sizeof address));
}

/// A new socket of the file system, once `call` has been made with it and the address of `path`.
template <class Call>
FileDescriptor makeLocal(const std::string& path, std::error_code& error, Call call) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  FileDescriptor descriptor;
  // An empty name, or one that begins with NUL, is not in the file system (unix(7)), so no permissions protect it.
  if (path.empty() || path.find('\0') != std::string::npos) {
    error = std::make_error_code(std::errc::invalid_argument);
  } else if (path.size() >= sizeof address.sun_path) {
    error = std::make_error_code(std::errc::filename_too_long);
  } else {
    path.copy(address.sun_path, path.size());
    const auto make = [] { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); };
    descriptor = FileDescriptor(checked(make, error));
  }
  const auto* const where = reinterpret_cast<const sockaddr*>(&address);
  if (!error) checked([&] { return call(descriptor.get(), where, sizeof address); }, error);
  if (error) descriptor.reset();
  return descriptor;
}

}  // namespace

std::optional<Address> decodedAddress(std::string_view systemForm) {
  sockaddr_in address{};
  if (systemForm.size() < sizeof address) return std::nullopt;
  std::memcpy(&address, systemForm.data(), sizeof address);
  if (address.sin_family != AF_INET) return std::nullopt;
  return Address{textOf(address), ntohs(address.sin_port)};
}

/// Without TCP_NODELAY the last small packet of a file would wait for an acknowledgement (Nagle, RFC 896). The writer
/// gathers small data itself.
FileDescriptor makeStream(std::error_code& error) {
  FileDescriptor descriptor(
      checked([] { return ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }, error));
  if (descriptor) setOption(descriptor.get(), IPPROTO_TCP, TCP_NODELAY, 1);
  return descriptor;
}

void connect(int descriptor, const Address& address, std::error_code& error) {
  const sockaddr_in target = systemAddress(address);
  error.clear();
  // An interrupted attempt goes on by itself (connect(2)), so it is not made again.
  if (withAddress(target, [&](auto* where, auto length) { return ::connect(descriptor, where, length); }) < 0) {
    error = errno == EINTR ? std::make_error_code(std::errc::operation_in_progress) : lastSystemError();
  }
}

std::error_code connectResult(int descriptor) {
  int code = 0;
  socklen_t length = sizeof code;
  if (::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &code, &length) < 0) code = errno;
  return {code, std::generic_category()};
}

FileDescriptor listen(const Address& where, std::error_code& error) {
  FileDescriptor descriptor = makeStream(error);
  if (!descriptor) return descriptor;
  setOption(descriptor.get(), SOL_SOCKET, SO_REUSEADDR, 1);
  const auto bindTo = [&](auto* address, auto length) { return ::bind(descriptor.get(), address, length); };
  if (withAddress(systemAddress(where), bindTo) < 0 || ::listen(descriptor.get(), SOMAXCONN) < 0) {
    error = lastSystemError();
    descriptor.reset();
  }
  return descriptor;
}

FileDescriptor accept(int descriptor, std::string& ip, std::error_code& error) {
  sockaddr_in from{};
  FileDescriptor accepted(checked(
      [&] {
        socklen_t length = sizeof from;
        return ::accept4(descriptor, reinterpret_cast<sockaddr*>(&from), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
      },
      error));
  if (accepted && from.sin_family == AF_INET) ip = textOf(from);
  return accepted;
}

std::uint16_t localPort(int descriptor) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length) < 0) return 0;
  return ntohs(address.sin_port);
}

std::size_t receive(int descriptor, std::span<char> buffer, std::error_code& error) {
  return counted([&] { return ::recv(descriptor, buffer.data(), buffer.size(), 0); }, error);
}

bool hasUnread(int descriptor) noexcept {
  int bytes = 0;
  return ::ioctl(descriptor, SIOCINQ, &bytes) == 0 && bytes > 0;
}

std::size_t send(int descriptor, std::string_view bytes, bool more, std::error_code& error) {
  const int flags = MSG_NOSIGNAL | (more ? MSG_MORE : 0);
  return counted([&] { return ::send(descriptor, bytes.data(), bytes.size(), flags); }, error);
}

std::size_t sendFile(int descriptor, const FileHandle& file, std::uint64_t offset, std::size_t length,
                     std::error_code& error) {
  auto position = static_cast<off_t>(offset);
  return counted([&] { return ::sendfile(descriptor, file.descriptor(), &position, length); }, error);
}

void shutdownSending(int descriptor) noexcept { ::shutdown(descriptor, SHUT_WR); }

void resetOnClose(int descriptor) noexcept {
  const linger discard{.l_onoff = 1, .l_linger = 0};
  ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &discard, sizeof discard);
}

void endOnClose(int descriptor) noexcept {
  const linger inBackground{.l_onoff = 0, .l_linger = 0};
  ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &inBackground, sizeof inBackground);
}

std::uint64_t unacknowledgedBytes(int descriptor) noexcept {
  int count = 0;
  return ::ioctl(descriptor, SIOCOUTQ, &count) < 0 ? 0 : static_cast<std::uint64_t>(count);
}

FileDescriptor connectLocal(const std::string& path, std::error_code& error) {
  FileDescriptor descriptor = makeLocal(path, error, ::connect);
  if (descriptor && !isOfUser(descriptor.get())) {
    error = std::make_error_code(std::errc::permission_denied);
    descriptor.reset();
  }
  return descriptor;
}

FileDescriptor listenLocal(const std::string& path, std::error_code& error) {
  // The mode is set before listening: until then nobody can connect, whatever the umask allows.
  return makeLocal(path, error, [&path](int descriptor, const sockaddr* where, socklen_t length) {
    const bool listens = ::bind(descriptor, where, length) == 0 && ::chmod(path.c_str(), S_IRUSR | S_IWUSR) == 0 &&
                         ::listen(descriptor, SOMAXCONN) == 0;
    return listens ? 0 : -1;
  });
}

bool isOfUser(int descriptor) noexcept {
  ucred peer{};
  socklen_t length = sizeof peer;
  return ::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && peer.uid == userId();
}

FileDescriptor makeDatagram(std::error_code& error) {
  FileDescriptor descriptor(
      checked([] { return ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }, error));
  if (descriptor) setOption(descriptor.get(), SOL_SOCKET, SO_RCVBUF, datagramBufferBytes);
  return descriptor;
}

void allowBroadcast(int descriptor, bool isAllowed, std::error_code& error) {
  const int value = isAllowed ? 1 : 0;
  checked([&] { return ::setsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &value, sizeof value); }, error);
}

void bind(int descriptor, std::uint16_t port, std::error_code& error) {
  const sockaddr_in everywhere = systemAddress({"0.0.0.0", port});
  const auto call = [&](auto* where, auto length) { return ::bind(descriptor, where, length); };
  checked([&] { return withAddress(everywhere, call); }, error);
}

void sendDatagram(int descriptor, std::string_view bytes, const Address& to, std::error_code& error) {
  const sockaddr_in target = systemAddress(to);
  const auto* const where = reinterpret_cast<const sockaddr*>(&target);
  checked([&] { return ::sendto(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL, where, sizeof target); }, error);
}

std::size_t receiveDatagram(int descriptor, std::span<char> buffer, std::string& from, std::error_code& error) {
  sockaddr_in sender{};
  socklen_t length = sizeof sender;
  auto* const where = reinterpret_cast<sockaddr*>(&sender);
  const auto call = [&] { return ::recvfrom(descriptor, buffer.data(), buffer.size(), 0, where, &length); };
  const std::size_t size = counted(call, error);
  from.assign(reinterpret_cast<const char*>(&sender), sizeof sender);
  return size;
}

}  // namespace vesko::SocketCalls
