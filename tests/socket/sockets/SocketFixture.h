#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "Platform/sockets/GCDAsyncSocket.h"
#include "tests/support/EventList.h"
#include "tests/support/FakeClock.h"
#include "tests/support/QueueTasks.h"
#include "tests/support/RawPeer.h"

namespace vesko {

/// Records what a socket reports.
class SocketEvents final : public GCDAsyncSocketDelegate, public EventList {
 public:
  std::string received;                      ///< by reads into memory
  std::shared_ptr<GCDAsyncSocket> accepted;  ///< last
  double extension = 0;                      ///< seconds that the next operation to time out gets; once
  std::function<void()> onRead;

  void socketDidAcceptNewSocket(GCDAsyncSocket& /*socket*/, std::shared_ptr<GCDAsyncSocket> newSocket) override {
    accepted = std::move(newSocket);
    add("accepted " + accepted->connectedHost());
  }
  void socketDidConnectToHost(GCDAsyncSocket& /*socket*/, const std::string& host, std::uint16_t /*port*/) override {
    add("connected " + host);
  }
  void socketDidReadData(GCDAsyncSocket& /*socket*/, const Data& data, std::int64_t tag) override {
    if (!data.isStretchOfFile()) received += data.view();
    add("read " + std::to_string(tag) + " " + std::to_string(data.size()));
    if (onRead) onRead();
  }
  void socketDidReadPartialDataOfLength(GCDAsyncSocket& /*socket*/, std::uint64_t length, std::int64_t tag) override {
    add("reading " + std::to_string(tag) + " " + std::to_string(length));
  }
  void socketDidWriteDataWithTag(GCDAsyncSocket& /*socket*/, std::int64_t tag) override {
    add("wrote " + std::to_string(tag));
  }
  void socketDidWritePartialDataOfLength(GCDAsyncSocket& /*socket*/, std::uint64_t length, std::int64_t tag) override {
    add("writing " + std::to_string(tag) + " " + std::to_string(length));
  }
  double socketShouldTimeoutWriteWithTag(GCDAsyncSocket& /*socket*/, std::int64_t tag, double elapsed,
                                         std::uint64_t bytesDone) override {
    return timedOut(tag, elapsed, bytesDone);
  }
  double socketShouldTimeoutReadWithTag(GCDAsyncSocket& /*socket*/, std::int64_t tag, double elapsed,
                                        std::uint64_t bytesDone) override {
    return timedOut(tag, elapsed, bytesDone);
  }
  void socketDidDisconnect(GCDAsyncSocket& /*socket*/, const SocketError& error) override {
    static constexpr const char* operations[] = {"none", "listen", "connect", "read", "write", "source", "destination"};
    const std::string operation = operations[static_cast<std::size_t>(error.operation)];
    add("disconnected " + operation + (error ? ": " + error.code.message() : ""));
  }

  /// The sum of the partial notices for a tag ("reading 1" or "writing 1").
  [[nodiscard]] std::uint64_t sumOf(const std::string& notice) const {
    std::uint64_t sum = 0;
    for (const std::string& event : startingWith(notice + " ")) sum += std::stoull(event.substr(notice.size()));
    return sum;
  }

 private:
  double timedOut(std::int64_t tag, double elapsed, std::uint64_t bytesDone) {
    add("timed out " + std::to_string(tag) + " " + std::to_string(elapsed) + " " + std::to_string(bytesDone));
    return std::exchange(extension, 0);
  }
};

/// A queue with a clock that stands still.
class QueueTest : public testing::Test {
 protected:
  ~QueueTest() override { waitForTasks(queue_); }

  /// Lets time pass once all is done that was asked for before; what is due then is done as well.
  void letTimePass(FakeClock::SteadyTime::duration time) const {
    waitForTasks(queue_);
    clock_->advance(time);
    waitForTasks(queue_);
  }

  const std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
  const std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::serial("test", clock_);
};

/// A socket of ours and, with each `connect`, a new one and a raw connection at its other side.
class SocketTest : public QueueTest {
 protected:
  /// `stallTimeout`: seconds; negative: none.
  [[nodiscard]] RawConnection connect(double stallTimeout = -1) {
    events_ = std::make_shared<SocketEvents>();
    socket_ = GCDAsyncSocket::make(events_, queue_);
    socket_->setStallTimeout(stallTimeout);
    const RawListener listener;
    SocketError error;
    EXPECT_TRUE(socket_->connectToHost("127.0.0.1", listener.port(), 10, error));
    RawConnection peer = listener.accept();
    EXPECT_TRUE(events_->waitFor("connected 127.0.0.1"));
    return peer;
  }

  /// True when the socket has reported its end once, and as this text says.
  [[nodiscard]] bool endsWith(const std::string& text) const {
    if (!events_->waitFor("disconnected")) return false;
    waitForTasks(queue_);
    EXPECT_EQ(events_->all().back(), "disconnected " + text);
    return events_->count("disconnected") == 1;
  }

  std::shared_ptr<SocketEvents> events_ = std::make_shared<SocketEvents>();
  std::shared_ptr<GCDAsyncSocket> socket_ = GCDAsyncSocket::make(events_, queue_);
};

}  // namespace vesko
