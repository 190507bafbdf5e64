#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include "Platform/files/FileDescriptor.h"

namespace vesko {

class DispatchQueue;

/// A stream of text lines to another process of the same user, over a socket of the file system (unix(7)).
///
/// Operations may be called on any thread. Destroying it closes the connection; where that is not done on the queue, a
/// line may be told until the queue gets to it.
class LocalConnection {
 public:
  /// Bytes of one line, and of all that waits to be sent; a side that passes either is cut off.
  static constexpr std::size_t maximumLineLength = 32U << 20U;

  virtual ~LocalConnection() = default;
  LocalConnection(const LocalConnection&) = delete;
  LocalConnection& operator=(const LocalConnection&) = delete;

  /// Connects to who listens at `path`. None, with `error` set, when nobody does or when it is another user
  /// (`std::errc::permission_denied`).
  [[nodiscard]] static std::shared_ptr<LocalConnection> connect(const std::string& path,
                                                                std::shared_ptr<DispatchQueue> queue,
                                                                std::error_code& error);

  /// The same over a connection that is there, which it takes over.
  [[nodiscard]] static std::shared_ptr<LocalConnection> over(FileDescriptor descriptor,
                                                             std::shared_ptr<DispatchQueue> queue,
                                                             std::error_code& error);

  /// Calls `onLine` for each line that arrives, without its line feed, and `onEnd` once, as the last, when the
  /// connection has ended without `close`; both on the queue. Who only sends no more may still read: what waits for it
  /// is sent as by `closeAfterSending`. `lineLimit`: bytes, at most `maximumLineLength`; a longer line ends the
  /// connection. The functions live as long as the connection, so they must not own it. Once.
  virtual void start(std::size_t lineLimit, std::function<void(std::string)> onLine, std::function<void()> onEnd) = 0;

  /// Sends `line`, which holds no line feed, and a line feed. Never waits; what cannot arrive any more is dropped.
  virtual void send(std::string line) = 0;

  /// Closes the connection; nothing is told any more once the queue's task under way has ended.
  virtual void close() = 0;

  /// The same once everything has been sent, and after two seconds at the latest; until then the connection keeps
  /// itself. No line is told any more, and no other is sent.
  virtual void closeAfterSending() = 0;

 protected:
  LocalConnection() = default;
};

/// Accepts connections of processes of the same user at a path of the file system.
class LocalListener {
 public:
  /// Removes what it listens at, unless somebody else listens there by now.
  virtual ~LocalListener() = default;
  LocalListener(const LocalListener&) = delete;
  LocalListener& operator=(const LocalListener&) = delete;

  /// Listens at `path`, whose folder is made when it is missing (mode 0700) and otherwise has to be a folder of the
  /// current user's that nobody else has any right to; the socket has mode 0600. What a process that has ended left at
  /// `path` is replaced; where a living one listens, `error` is `std::errc::address_in_use`. Each connection goes to
  /// `onConnection`, on the queue, not yet started, and the last one perhaps while the listener is being destroyed;
  /// those of other users are closed at once. `std::errc::permission_denied`: others have rights to the folder;
  /// `std::errc::filename_too_long`: the path, with a little to spare, does not fit into a socket's address (unix(7)).
  [[nodiscard]] static std::unique_ptr<LocalListener> listen(
      const std::string& path, std::shared_ptr<DispatchQueue> queue,
      std::function<void(std::shared_ptr<LocalConnection>)> onConnection, std::error_code& error);

 protected:
  LocalListener() = default;
};

}  // namespace vesko
