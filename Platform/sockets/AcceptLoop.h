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

/// Accepts connections on a serial queue for as long as it is owned. When that fails for lack of descriptors or memory
/// it pauses, by the queue's clock, and then goes on; connections wait in the system's backlog meanwhile.
///
/// It may be released on any thread. When that is not the queue, the connections of the current turn may still be
/// handed over.
class AcceptLoop final : public std::enable_shared_from_this<AcceptLoop> {
 public:
  /// Takes over an accepted connection, which is non-blocking. `ip`: see `SocketCalls::accept`. Called on the queue.
  using OnConnection = std::function<void(FileDescriptor connection, std::string ip)>;

  /// Takes over a listening socket. None, with `error` set, when the system cannot watch it.
  [[nodiscard]] static std::shared_ptr<AcceptLoop> make(FileDescriptor listening, std::shared_ptr<DispatchQueue> queue,
                                                        OnConnection onConnection, std::error_code& error);

  AcceptLoop(FileDescriptor listening, std::shared_ptr<DispatchQueue> queue, OnConnection onConnection);

  /// Starts accepting, as a task of the queue. Any thread; once.
  void start();

 private:
  [[nodiscard]] std::function<void()> whileOwned(void (AcceptLoop::*work)());
  void accept();

  const std::shared_ptr<DispatchQueue> queue_;
  const OnConnection onConnection_;
  const FileDescriptor listening_;
  std::unique_ptr<DispatchSource> source_;  // after the descriptor, which must outlive it
  std::unique_ptr<Alarm> alarm_;
};

}  // namespace vesko
