#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>

#include "Platform/files/FileDescriptor.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchSource.h"
#include "Platform/sockets/LocalSocket.h"

namespace vesko {

/// A connection over a descriptor. What is sent waits under a lock; everything else happens on the queue.
class LocalStream final : public LocalConnection, public std::enable_shared_from_this<LocalStream> {
 public:
  /// None, with `error` set, when the system cannot watch the descriptor.
  [[nodiscard]] static std::shared_ptr<LocalStream> make(FileDescriptor descriptor,
                                                         std::shared_ptr<DispatchQueue> queue, std::error_code& error);

  LocalStream(FileDescriptor descriptor, std::shared_ptr<DispatchQueue> queue);

  void start(std::size_t lineLimit, std::function<void(std::string)> onLine, std::function<void()> onEnd) override;
  void send(std::string line) override;
  void close() override;
  void closeAfterSending() override;

 private:
  enum class State { open, closing, ended, closed };

  void later(void (LocalStream::*work)());

  void receive();
  [[nodiscard]] bool receivePiece();
  void takePiece(std::string_view piece);

  void flush();
  [[nodiscard]] std::error_code sendWaiting();
  [[nodiscard]] bool takeWaiting();

  void end();
  void finish(State state);
  void finishClosed() { finish(State::closed); }
  void refuseMore();

  const std::shared_ptr<DispatchQueue> queue_;
  FileDescriptor descriptor_;
  std::unique_ptr<DispatchSource> source_;  // goes before the descriptor
  std::unique_ptr<Alarm> alarm_;
  State state_ = State::open;

  std::size_t lineLimit_ = 0;
  std::string partialLine_;
  std::function<void(std::string)> onLine_;
  std::function<void()> onEnd_;

  std::string sending_;
  std::size_t sent_ = 0;  // bytes of `sending_`
  bool awaitsRoom_ = false;

  std::mutex mutex_;
  std::string waiting_;       // locked: follows `sending_`
  std::size_t unsent_ = 0;    // locked: bytes of both that the system has not taken
  bool isFlushing_ = false;   // locked: a task or the source sees to what waits
  bool refusesMore_ = false;  // locked
};

}  // namespace vesko
