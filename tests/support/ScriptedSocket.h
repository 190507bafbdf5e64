#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "Platform/queues/Clock.h"
#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/GCDAsyncSocket.h"

namespace vesko {

/// A socket that reaches nobody: it connects, completes its first `completedWrites` writes, telling the first byte of
/// each by a partial notice, and lets the next one wait until its time-out.
class ScriptedSocket final : public GCDAsyncSocket, public std::enable_shared_from_this<ScriptedSocket> {
 public:
  using Delegate = std::weak_ptr<GCDAsyncSocketDelegate>;

  ScriptedSocket(Delegate delegate, std::shared_ptr<DispatchQueue> queue, std::size_t completedWrites)
      : delegate_(std::move(delegate)), queue_(std::move(queue)), writesToComplete_(completedWrites) {}

  void setDelegate(Delegate delegate) override { delegate_ = std::move(delegate); }

  [[nodiscard]] bool connectToHost(const std::string& host, std::uint16_t port, double /*timeout*/,
                                   SocketError& /*error*/) override {
    tell([host, port](auto& self, auto& delegate) { delegate.socketDidConnectToHost(self, host, port); });
    return true;
  }

  void setStallTimeout(double /*seconds*/) override {}

  void writeData(Data /*data*/, double timeout, std::int64_t tag) override {
    if (writesToComplete_ > 0) {
      --writesToComplete_;
      tell([tag](auto& self, auto& delegate) {
        delegate.socketDidWritePartialDataOfLength(self, 1, tag);
        delegate.socketDidWriteDataWithTag(self, tag);
      });
    } else if (timeout >= 0) {
      const auto delay = std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(timeout));
      alarm_ = queue_->clock()->callAfter(delay, [this, timeout, tag] {
        tell([timeout, tag](auto& self, auto& delegate) {
          const double extension = delegate.socketShouldTimeoutWriteWithTag(self, tag, timeout, 0);
          if (extension <= 0) self.end({SocketError::Operation::write, std::make_error_code(std::errc::timed_out)});
        });
      });
    }
  }

  void disconnect() override { end({}); }
  void disconnectWithReset() override { end({}); }
  void disconnectAfterWriting() override { end({}); }

  [[nodiscard]] bool acceptOnPort(std::uint16_t /*port*/, SocketError& /*error*/) override { return false; }
  void readDataToLength(std::uint64_t /*length*/, double /*timeout*/, std::int64_t /*tag*/) override {}
  void readDataToByte(char /*last*/, std::uint64_t /*maximumLength*/, double /*timeout*/,
                      std::int64_t /*tag*/) override {}
  void readDataToLength(std::uint64_t /*length*/, std::shared_ptr<FileHandle> /*destination*/, double /*timeout*/,
                        std::int64_t /*tag*/) override {}
  [[nodiscard]] std::string connectedHost() const override { return {}; }
  [[nodiscard]] std::uint16_t localPort() const override { return 0; }
  [[nodiscard]] bool hasUnread() const override { return false; }

 private:
  template <class Call>
  void tell(Call call) {
    queue_->async([self = shared_from_this(), call] {
      if (const auto delegate = self->delegate_.lock()) call(*self, *delegate);
    });
  }

  void end(const SocketError& error) {
    tell([error](auto& self, auto& delegate) { delegate.socketDidDisconnect(self, error); });
  }

  Delegate delegate_;
  std::shared_ptr<DispatchQueue> queue_;
  std::size_t writesToComplete_;
  std::unique_ptr<Alarm> alarm_;
};

}  // namespace vesko
