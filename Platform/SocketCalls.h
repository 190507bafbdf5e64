#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

#include "Platform/FileDescriptor.h"

namespace vesko {

class FileHandle;

/// What a stream socket asks of the system. Descriptors are non-blocking; a call that would have to wait reports
/// `std::errc::operation_would_block`, and interrupted calls are made again. Any thread.
namespace SocketCalls {

/// An IPv4 address and port.
struct Address {
  std::string host;  ///< dotted-decimal
  std::uint16_t port = 0;
};

/// True when `host` is an IPv4 address in dotted-decimal form.
[[nodiscard]] bool isAddress(const std::string& host) noexcept;

/// A new TCP socket that sends small segments at once: what is worth gathering has been gathered before.
[[nodiscard]] FileDescriptor makeStream(std::error_code& error);

/// Starts connecting; `std::errc::operation_in_progress` when the end of the attempt has to be waited for.
void connect(int descriptor, const Address& address, std::error_code& error);

/// How an attempt to connect ended.
[[nodiscard]] std::error_code connectResult(int descriptor);

/// A socket that listens on `port` of every interface, taking over from connections of an earlier process that are
/// still dying.
[[nodiscard]] FileDescriptor listen(std::uint16_t port, std::error_code& error);

[[nodiscard]] FileDescriptor accept(int descriptor, std::string& host, std::error_code& error);

[[nodiscard]] std::uint16_t localPort(int descriptor);

/// Reads what is there, up to the buffer's size; 0 without an error is the end of the stream.
[[nodiscard]] std::size_t receive(int descriptor, std::span<char> buffer, std::error_code& error);

/// Sends what the system takes; `more`: something follows at once, so that a part of a segment may wait for it.
[[nodiscard]] std::size_t send(int descriptor, std::string_view bytes, bool more, std::error_code& error);

/// Sends up to `length` bytes of `file` from `offset` on, without bringing them into the program. 0 without an error:
/// the file ends there. `std::errc::invalid_argument` or `function_not_supported`: not possible for this file.
[[nodiscard]] std::size_t sendFile(int descriptor, const FileHandle& file, std::uint64_t offset, std::size_t length,
                                   std::error_code& error);

/// Says that nothing more will be sent.
void shutdownSending(int descriptor) noexcept;

/// Makes closing the socket a reset.
void resetOnClose(int descriptor) noexcept;

/// Bytes that the other side has not acknowledged yet.
[[nodiscard]] std::uint64_t unacknowledgedBytes(int descriptor) noexcept;

}  // namespace SocketCalls
}  // namespace vesko
