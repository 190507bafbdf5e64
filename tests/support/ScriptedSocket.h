#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "Platform/Clock.h"
#include "Platform/GCDAsyncSocket.h"

namespace vesko {

/// A socket that reaches nobody: it connects, completes its first `completedWrites` writes, telling the first byte of
/// each by a partial notice, and lets the next one wait until its time-out.
class ScriptedSocket final : public GCDAsyncSocket, public std::enable_shared_from_this<ScriptedSocket> {
 public:
  ScriptedSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate, std::shared_ptr<DispatchQueue> queue,
                 std::size_t completedWrites);

  void setDelegate(std::weak_ptr<GCDAsyncSocketDelegate> delegate) override;
  [[nodiscard]] bool connectToHost(const std::string& host, std::uint16_t port, SocketError& error) override;
  [[nodiscard]] bool acceptOnPort(std::uint16_t port, SocketError& error) override;
  void readDataToLength(std::uint64_t length, double timeout, std::int64_t tag) override;
  void readDataToLength(std::uint64_t length, std::shared_ptr<FileHandle> destination, double timeout,
                        std::int64_t tag) override;
  void writeData(Data data, double timeout, std::int64_t tag) override;
  void disconnect() override { end({}); }
  void disconnectWithReset() override { end({}); }
  void disconnectAfterWriting() override { end({}); }
  [[nodiscard]] std::string connectedHost() const override { return {}; }
  [[nodiscard]] std::uint16_t localPort() const override { return 0; }

 private:
  template <class Call>
  void tell(Call call);
  void end(SocketError error);

  std::weak_ptr<GCDAsyncSocketDelegate> delegate_;
  std::shared_ptr<DispatchQueue> queue_;
  std::size_t writesToComplete_;
  std::unique_ptr<Alarm> alarm_;
};

}  // namespace vesko
