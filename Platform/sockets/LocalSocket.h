#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

class DispatchQueue;

/// A connection to another process of the same user over a local stream socket (unix(7)), on which both sides send
/// lines of text.
///
/// Operations may be called on any thread. Destroying it closes the connection. When that does not happen on the queue,
/// a line may still be delivered until the queue gets to it.
class LocalConnection {
 public:
  /// Bytes of one line, and of all lines that wait to be sent. A side that exceeds either is disconnected.
  static constexpr std::size_t maximumLineLength = 32U << 20U;

  virtual ~LocalConnection() = default;
  LocalConnection(const LocalConnection&) = delete;
  LocalConnection& operator=(const LocalConnection&) = delete;

  /// Connects to the listener at `path`. None, with `error` set, when there is none, or when it is another user's
  /// (`std::errc::permission_denied`).
  [[nodiscard]] static std::shared_ptr<LocalConnection> connect(const std::string& path,
                                                                std::shared_ptr<DispatchQueue> queue,
                                                                std::error_code& error);

  /// Uses a socket that is connected already, and takes it over.
  [[nodiscard]] static std::shared_ptr<LocalConnection> over(FileDescriptor descriptor,
                                                             std::shared_ptr<DispatchQueue> queue,
                                                             std::error_code& error);

  /// Calls `onLine` for each line received, without its line feed, and, when the connection ends other than by `close`,
  /// `onEnd` once as the last call. Both on the queue. Call `start` once.
  ///
  /// `lineLimit`: bytes, at most `maximumLineLength`; a longer line ends the connection. When the other side only stops
  /// sending, it may still read: what waits for it is sent as by `closeAfterSending`. The functions are kept as long as
  /// the connection, so they must not own it.
  virtual void start(std::size_t lineLimit, std::function<void(std::string)> onLine, std::function<void()> onEnd) = 0;

  /// Sends `line`, which must not contain a line feed, and a line feed. Returns at once. What cannot be delivered any
  /// more is dropped.
  virtual void send(std::string line) = 0;

  /// Closes the connection. After the current task of the queue neither `onLine` nor `onEnd` is called.
  virtual void close() = 0;

  /// Closes the connection once everything was sent, after two seconds at the latest; until then it need not be owned.
  /// No more lines are delivered, and later ones are not sent.
  virtual void closeAfterSending() = 0;

 protected:
  LocalConnection() = default;
};

/// Accepts connections of processes of the same user at a path in the file system.
class LocalListener {
 public:
  /// Removes the socket at the path, unless another listener has replaced it.
  virtual ~LocalListener() = default;
  LocalListener(const LocalListener&) = delete;
  LocalListener& operator=(const LocalListener&) = delete;

  /// Listens at `path` with a socket of mode 0600. The folder of `path` is made if missing (mode 0700); an existing one
  /// must belong to the current user, and nobody else may have any right to it (`std::errc::permission_denied`
  /// otherwise). A socket that an ended process has left at `path` is replaced. While another process listens there,
  /// `error` is `std::errc::address_in_use`. `std::errc::filename_too_long`: the path, with a few bytes to spare, does
  /// not fit into the address of a socket (unix(7)).
  ///
  /// Each connection is passed to `onConnection` on the queue, not started yet; the last one perhaps while the listener
  /// is being destroyed. Connections of other users are closed at once.
  [[nodiscard]] static std::unique_ptr<LocalListener> listen(
      const std::string& path, std::shared_ptr<DispatchQueue> queue,
      std::function<void(std::shared_ptr<LocalConnection>)> onConnection, std::error_code& error);

 protected:
  LocalListener() = default;
};

}  // namespace vesko
