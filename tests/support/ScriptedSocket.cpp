#include "tests/support/ScriptedSocket.h"

#include <chrono>
#include <utility>

#include "Platform/DispatchQueue.h"

namespace vesko {

ScriptedSocket::ScriptedSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate, std::shared_ptr<DispatchQueue> queue,
                               std::size_t completedWrites)
    : delegate_(std::move(delegate)), queue_(std::move(queue)), writesToComplete_(completedWrites) {}

template <class Call>
void ScriptedSocket::tell(Call call) {
  queue_->async([self = shared_from_this(), call] {
    if (const auto delegate = self->delegate_.lock()) call(*self, *delegate);
  });
}

void ScriptedSocket::setDelegate(std::weak_ptr<GCDAsyncSocketDelegate> delegate) { delegate_ = std::move(delegate); }

bool ScriptedSocket::connectToHost(const std::string& host, std::uint16_t port, SocketError& /*error*/) {
  tell([host, port](auto& self, auto& delegate) { delegate.socketDidConnectToHost(self, host, port); });
  return true;
}

bool ScriptedSocket::acceptOnPort(std::uint16_t /*port*/, SocketError& /*error*/) { return false; }

void ScriptedSocket::readDataToLength(std::uint64_t /*length*/, double /*timeout*/, std::int64_t /*tag*/) {}

void ScriptedSocket::readDataToLength(std::uint64_t /*length*/, std::shared_ptr<FileHandle> /*destination*/,
                                      double /*timeout*/, std::int64_t /*tag*/) {}

void ScriptedSocket::writeData(Data /*data*/, double timeout, std::int64_t tag) {
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

void ScriptedSocket::end(SocketError error) {
  tell([error](auto& self, auto& delegate) { delegate.socketDidDisconnect(self, error); });
}

}  // namespace vesko
