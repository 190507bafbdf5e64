#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/files/FileDescriptor.h"
#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchSource.h"
#include "Platform/sockets/GCDAsyncUdpSocket.h"
#include "Platform/sockets/SocketCalls.h"

namespace vesko {

/// `GCDAsyncUdpSocket` on a socket of the system.
///
/// A datagram is sent on the calling thread, unless others wait already or the system has no room. So, as a rule, a
/// goodbye is sent when `sendData` returns, even if the process ends right after it. What has to wait is tried again on
/// the delegate queue. The mutex is not held while the delegate is called.
class DatagramSocket final : public GCDAsyncUdpSocket, public std::enable_shared_from_this<DatagramSocket> {
 public:
  /// At most this many datagrams wait; further ones fail with `std::errc::no_buffer_space`. Enough for one to each
  /// address of sixteen networks of 254 addresses.
  static constexpr std::size_t unsentLimit = 4096;

  DatagramSocket(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate, std::shared_ptr<DispatchQueue> delegateQueue);
  ~DatagramSocket() override;

  void setIPv6Enabled(bool isEnabled) override;
  [[nodiscard]] bool enableBroadcast(bool isEnabled, std::error_code& error) override;
  [[nodiscard]] bool bindToPort(std::uint16_t port, std::error_code& error) override;
  [[nodiscard]] bool beginReceiving(std::error_code& error) override;
  void sendData(std::string data, const std::string& host, std::uint16_t port, double timeout,
                std::int64_t tag) override;
  void close() override;
  [[nodiscard]] std::uint16_t localPort() const override;

 private:
  enum class State : std::uint8_t { unbound, bound, closed };
  using Time = std::chrono::steady_clock::time_point;

  struct Datagram {
    std::string data;
    SocketCalls::Address to;
    std::int64_t tag;
    Time expires;
  };

  struct Failure {
    std::int64_t tag;
    std::error_code error;
  };

  // With the mutex held
  void openDescriptor(std::error_code& error);
  [[nodiscard]] std::error_code sendOrKeep(Datagram datagram);
  [[nodiscard]] std::error_code send(const Datagram& datagram);
  [[nodiscard]] std::vector<Failure> takeExpired();
  [[nodiscard]] std::error_code sendUnsent(std::vector<Failure>& failures);
  void waitForRoom(const std::error_code& shortage);
  void watchDeadlines(const std::error_code& shortage);

  void scheduleSending();
  void sendAgain();
  void tell(const Failure& failure);
  void receiveWhenReadable();
  [[nodiscard]] bool receiveOne();

  const std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate_;
  const std::shared_ptr<DispatchQueue> queue_;

  mutable std::mutex mutex_;  // guards what follows, up to the empty line
  State state_ = State::unbound;
  bool allowsBroadcast_ = false;
  FileDescriptor descriptor_;
  std::unique_ptr<DispatchSource> source_;  // after the descriptor, which must outlive it
  std::deque<Datagram> unsent_;
  bool isReceiving_ = false;
  bool isSendingScheduled_ = false;
  bool isWaitingForRoom_ = false;
  std::unique_ptr<Alarm> alarm_;

  // On the delegate queue only, once receiving has begun
  std::vector<char> buffer_;
  std::string sender_;
};

}  // namespace vesko
