#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include "Platform/files/Data.h"
#include "Platform/sockets/SocketError.h"
#include "Platform/sockets/StreamStep.h"

namespace vesko {

/// The writing half of a stream socket: the queue of writes, and a buffer that gathers small ones so that one system
/// call writes many of them. On the socket's queue only.
///
/// A write is complete as soon as it is in the buffer, as long as the system accepts what it is given. Once the system
/// has refused bytes (`isBlocked`), nothing is added until the buffer is empty again. So writes to a connection that
/// does not move stay incomplete and their time-outs run.
class StreamWriter {
 public:
  struct Request {
    Data data;
    double timeout = -1.0;  ///< seconds; negative: none
    std::int64_t tag = 0;
  };

  void enqueue(Request request);
  void clear();

  /// The first write's time-out in seconds; none when no write is queued or it has no time-out. The socket measures it.
  [[nodiscard]] std::optional<double> timeoutOfFirst() const noexcept;
  [[nodiscard]] std::int64_t tagOfFirst() const noexcept { return queue_.front().tag; }
  [[nodiscard]] std::uint64_t bytesDoneOfFirst() const noexcept { return queue_.front().done; }

  /// True when every write is complete; the buffer may still hold bytes of them.
  [[nodiscard]] bool isComplete() const noexcept { return queue_.empty(); }

  /// Bytes in the buffer.
  [[nodiscard]] std::uint64_t gatheredBytes() const noexcept { return gathered_ - sent_; }
  /// True from the moment when the system refused bytes until `unblock`.
  [[nodiscard]] bool isBlocked() const noexcept { return blocked_; }

  /// To be called when the connection is writable again.
  void unblock() noexcept { blocked_ = false; }

  /// Takes the first write one step further. `error` is set when the result is `failed`.
  [[nodiscard]] StreamStep step(int descriptor, SocketError& error);

  /// Hands the buffer to the system. `more`: other bytes follow at once, so a segment that is not full may wait for
  /// them (MSG_MORE). `idle`: the buffer is empty; `blocked`: the system did not take everything.
  [[nodiscard]] StreamStep flush(int descriptor, bool more, SocketError& error);

  /// The tag of the write that the last step moved, and how many bytes of it.
  [[nodiscard]] std::int64_t movedTag() const noexcept { return movedTag_; }
  [[nodiscard]] std::uint64_t movedLength() const noexcept { return movedLength_; }

 private:
  struct Pending : Request {
    std::uint64_t done = 0;
  };

  [[nodiscard]] StreamStep gather(SocketError& error);
  [[nodiscard]] StreamStep sendFirst(int descriptor, SocketError& error);
  [[nodiscard]] std::size_t sendStretch(int descriptor, const Pending& request, SocketError& error);
  [[nodiscard]] bool appendFirst(std::size_t count, SocketError& error);
  [[nodiscard]] StreamStep advance(std::uint64_t count);
  [[nodiscard]] bool belongsInBuffer(const Pending& request) const noexcept;

  /// As for reading.
  static constexpr std::size_t bufferSize = 256 * 1024;

  /// A shorter stretch of a file is copied into the buffer: saving the copy gains less than a system call of its own
  /// costs.
  static constexpr std::uint64_t sendFileThreshold = 64 * 1024;

  /// Bytes in one call of sendfile(2), so that progress is told in between and other sockets of the queue get their
  /// turn.
  static constexpr std::uint64_t sendFileLimit = 1024 * 1024;

  std::deque<Pending> queue_;
  std::unique_ptr<char[]> buffer_;
  std::size_t sent_ = 0;
  std::size_t gathered_ = 0;
  bool blocked_ = false;
  bool sendFileUsable_ = true;
  std::int64_t movedTag_ = 0;
  std::uint64_t movedLength_ = 0;
};

}  // namespace vesko
