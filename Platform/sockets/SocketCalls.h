#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

class FileHandle;

/// What sockets ask of the system. Descriptors are non-blocking; a call that would have to wait reports
/// `std::errc::operation_would_block`, and interrupted calls are made again. Any thread.
namespace SocketCalls {

/// An IPv4 address and port.
struct Address {
  std::string ip;  ///< dotted-decimal
  std::uint16_t port = 0;

  friend bool operator==(const Address&, const Address&) = default;
};

/// The address that the system's form of one (sockaddr_in) says; none when it is of another kind.
[[nodiscard]] std::optional<Address> decodedAddress(std::string_view systemForm);

/// A new TCP socket that sends small segments at once: what is worth gathering has been gathered before.
[[nodiscard]] FileDescriptor makeStream(std::error_code& error);

/// Starts connecting; `std::errc::operation_in_progress` when the end of the attempt has to be waited for.
void connect(int descriptor, const Address& address, std::error_code& error);

/// How an attempt to connect ended, or what has happened to a connection since; each error is told once.
[[nodiscard]] std::error_code connectResult(int descriptor);

/// A socket that listens at `where`, taking over from connections of an earlier process that are still dying.
[[nodiscard]] FileDescriptor listen(const Address& where, std::error_code& error);

/// The same on `port` of every interface.
[[nodiscard]] inline FileDescriptor listen(std::uint16_t port, std::error_code& error) {
  return listen({"0.0.0.0", port}, error);
}

/// `ip`: of the other side, where it has an IPv4 address.
[[nodiscard]] FileDescriptor accept(int descriptor, std::string& ip, std::error_code& error);

[[nodiscard]] std::uint16_t localPort(int descriptor);

/// Reads what is there, up to the buffer's size; 0 without an error is the end of the stream.
[[nodiscard]] std::size_t receive(int descriptor, std::span<char> buffer, std::error_code& error);

/// True when the system keeps bytes for `receive`.
[[nodiscard]] bool hasUnread(int descriptor) noexcept;

/// Sends what the system takes; `more`: something follows at once, so that a part of a segment may wait for it.
[[nodiscard]] std::size_t send(int descriptor, std::string_view bytes, bool more, std::error_code& error);

/// Sends up to `length` bytes of `file` from `offset` on, without bringing them into the program. 0 without an error:
/// the file ends there. `std::errc::invalid_argument` or `function_not_supported`: not possible for this file.
[[nodiscard]] std::size_t sendFile(int descriptor, const FileHandle& file, std::uint64_t offset, std::size_t length,
                                   std::error_code& error);

/// Says that nothing more will be sent.
void shutdownSending(int descriptor) noexcept;

/// Makes closing the socket a reset, also when it is the system that closes it at the death of the process. Sockets
/// that a listening one accepts take this over from it (socket(7), SO_LINGER).
void resetOnClose(int descriptor) noexcept;

/// Makes closing the socket an orderly end.
void endOnClose(int descriptor) noexcept;

/// Bytes that the other side has not acknowledged yet.
[[nodiscard]] std::uint64_t unacknowledgedBytes(int descriptor) noexcept;

/// Connects to who listens at `path` of the file system (unix(7)); `std::errc::operation_would_block` when too many
/// wait there already, `std::errc::permission_denied` when it is another user. `std::errc::filename_too_long`, here and
/// below: the path does not fit into a socket's address.
[[nodiscard]] FileDescriptor connectLocal(const std::string& path, std::error_code& error);

/// A socket that listens at `path`, where nothing may be yet, with mode 0600.
[[nodiscard]] FileDescriptor listenLocal(const std::string& path, std::error_code& error);

/// True when the other side of such a connection acts as the same user as this process.
[[nodiscard]] bool isOfUser(int descriptor) noexcept;

/// A new UDP socket, with room for the answers that a whole network gives to one question.
[[nodiscard]] FileDescriptor makeDatagram(std::error_code& error);

/// Lets a datagram socket send to broadcast addresses, or not.
void allowBroadcast(int descriptor, bool isAllowed, std::error_code& error);

/// Binds a datagram socket to `port` of every interface; `std::errc::address_in_use` when another socket has it.
void bind(int descriptor, std::uint16_t port, std::error_code& error);

/// Sends one datagram, of no bytes at all if need be.
void sendDatagram(int descriptor, std::string_view bytes, const Address& to, std::error_code& error);

/// Receives one datagram into `buffer`, which cuts off what it has no room for, and returns its length, which may be 0.
/// `from`: the sender's address in the system's form.
[[nodiscard]] std::size_t receiveDatagram(int descriptor, std::span<char> buffer, std::string& from,
                                          std::error_code& error);

}  // namespace SocketCalls
}  // namespace vesko
