#pragma once

#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include "Platform/files/FileDescriptor.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchSource.h"

namespace vesko {

class DispatchQueue;

/// Accepts connections on a serial queue for as long as it has an owner. Where that fails, for want of a descriptor or
/// memory, say, it rests for a moment by the queue's clock, while the connections wait in the system's backlog, and
/// goes on by itself.
///
/// It may be let go of on any thread; off the queue, the connections of a turn under way are still handed on.
class AcceptLoop final : public std::enable_shared_from_this<AcceptLoop> {
 public:
  /// Takes over a connection, non-blocking, from `ip` as `SocketCalls::accept` tells it. On the queue.
  using OnConnection = std::function<void(FileDescriptor connection, std::string ip)>;

  /// Takes over a socket that listens. None, with `error` set, when the system cannot watch it.
  [[nodiscard]] static std::shared_ptr<AcceptLoop> make(FileDescriptor listening, std::shared_ptr<DispatchQueue> queue,
                                                        OnConnection onConnection, std::error_code& error);

  AcceptLoop(FileDescriptor listening, std::shared_ptr<DispatchQueue> queue, OnConnection onConnection);

  /// Begins, as a task of the queue. Any thread; once.
  void start();

 private:
  [[nodiscard]] std::function<void()> whileOwned(void (AcceptLoop::*work)());
  void accept();

  const std::shared_ptr<DispatchQueue> queue_;
  const OnConnection onConnection_;
  const FileDescriptor listening_;
  std::unique_ptr<DispatchSource> source_;  // goes before the descriptor
  std::unique_ptr<Alarm> alarm_;
};

}  // namespace vesko
