#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>

#include "Platform/files/Data.h"
#include "Platform/sockets/SocketError.h"
#include "Platform/sockets/StreamStep.h"

namespace vesko {

/// The writing half of a stream socket: the queued writes, and a buffer that gathers small ones so that many of them go
/// to the system with one call. On the socket's queue only.
///
/// A gathered write counts as complete while the connection keeps taking what it is given. Once the system has refused
/// bytes, nothing is gathered until the buffer is empty again, so a write that comes to a halt is told to wait like any
/// other, and its time-out runs.
class StreamWriter {
 public:
  struct Request {
    Data data;
    double timeout = -1.0;  ///< seconds; negative: none
    std::int64_t tag = 0;
  };

  void enqueue(Request request);
  void clear();

  [[nodiscard]] std::optional<double> timeoutOfFirst() const noexcept;
  [[nodiscard]] std::int64_t tagOfFirst() const noexcept { return queue_.front().tag; }
  [[nodiscard]] std::uint64_t bytesDoneOfFirst() const noexcept { return queue_.front().done; }

  /// True when every write is complete; bytes of it may still stand in the buffer.
  [[nodiscard]] bool isComplete() const noexcept { return queue_.empty(); }

  /// Bytes of complete writes that the system has not taken yet.
  [[nodiscard]] std::uint64_t gatheredBytes() const noexcept { return gathered_ - sent_; }
  [[nodiscard]] bool isBlocked() const noexcept { return blocked_; }

  /// The connection takes bytes again.
  void unblock() noexcept { blocked_ = false; }

  /// Brings the first request one step further. On `failed`, `error` says why.
  [[nodiscard]] StreamStep step(int descriptor, SocketError& error);

  /// Hands the gathered bytes to the system: `idle` when none are left, `blocked` when it did not take them all.
  [[nodiscard]] StreamStep flush(int descriptor, bool more, SocketError& error);

  /// The tag of the request that the last step moved, and the bytes it moved.
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

  /// Below this a stretch of a file is copied into the buffer: one system call less costs more than the copy saves.
  static constexpr std::uint64_t sendFileThreshold = 64 * 1024;

  /// Bytes handed to the system at once, so that progress is told and other sockets get their turn.
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
