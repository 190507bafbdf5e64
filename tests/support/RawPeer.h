#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

/// The other side of a connection on this machine, in blocking calls of ten seconds at most.
class RawConnection {
 public:
  explicit RawConnection(FileDescriptor descriptor);
  [[nodiscard]] static RawConnection to(std::uint16_t port);

  /// Sends all bytes, `pieceLength` at a time; false when the connection is gone.
  bool send(std::string_view bytes, std::size_t pieceLength = std::string_view::npos);

  /// The next bytes: fewer than `length` only at the end of the stream or with `error` set.
  [[nodiscard]] std::string receive(std::size_t length);
  [[nodiscard]] std::string receiveAll() { return receive(std::string::npos); }

  /// Why the last receiving ended; none for the orderly end of the stream.
  [[nodiscard]] const std::error_code& error() const noexcept { return error_; }

  /// Ends what is sent; the other side can go on.
  void endSending() const noexcept;

  void close() noexcept { descriptor_.reset(); }
  void reset() noexcept;

 private:
  FileDescriptor descriptor_;
  std::error_code error_;
};

/// A port of this machine that connections can be made to; one that is not `listening` is taken, but refuses them.
class RawListener {
 public:
  /// `backlog`: connections that can wait to be accepted, beside one more.
  explicit RawListener(bool listening = true, int backlog = 4096);

  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
  [[nodiscard]] RawConnection accept() const;

  /// True when a connection has come that was not accepted yet.
  [[nodiscard]] bool hasWaiting() const;

 private:
  FileDescriptor descriptor_;
  std::uint16_t port_ = 0;
};

/// A port that says nothing to whoever wants a connection, as a machine that is switched off.
class SilentListener : private RawListener {
 public:
  SilentListener() : RawListener(true, 0), only_(RawConnection::to(port())) {}

  using RawListener::port;

 private:
  RawConnection only_;  // takes up all the room there is
};

}  // namespace vesko
