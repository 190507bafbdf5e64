#include "Platform/sockets/GCDAsyncUdpSocket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <thread>

#include "Platform/sockets/DatagramSocket.h"
#include "tests/socket/sockets/SocketFixture.h"
#include "tests/support/RawDatagrams.h"

namespace vesko {
namespace {

/// What sending fails with, and how many more times: a full system cannot be arranged, so it is acted.
std::atomic<int> sendFailure{0};
std::atomic<int> sendFailures{0};

}  // namespace
}  // namespace vesko

extern "C" ssize_t sendto(int descriptor, const void* bytes, size_t size, int flags, const sockaddr* to,
                          socklen_t length) {
  const bool isOurs = (::fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0;  // and not one of the test's
  if (isOurs && vesko::sendFailures > 0) {
    --vesko::sendFailures;
    errno = vesko::sendFailure;
    return -1;
  }
  return ::syscall(SYS_sendto, descriptor, bytes, size, flags, to, length);
}

namespace vesko {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

class UdpEvents final : public GCDAsyncUdpSocketDelegate, public EventList {
 public:
  explicit UdpEvents(std::shared_ptr<DispatchQueue> queue) : queue_(std::move(queue)) {}

  std::function<void()> onReceive;

  void udpSocketDidReceiveData(GCDAsyncUdpSocket& /*socket*/, std::string_view data,
                               std::string_view address) override {
    std::string host;
    std::uint16_t port = 0;
    EXPECT_TRUE(queue_->isCurrent());
    EXPECT_TRUE(GCDAsyncUdpSocket::getHost(host, port, address));
    EXPECT_FALSE(GCDAsyncUdpSocket::getHost(host, port, address.substr(1)));
    add("received " + host + ":" + std::to_string(port) + " " + std::string(data));
    if (onReceive) onReceive();
  }
  void udpSocketDidNotSendDataWithTag(GCDAsyncUdpSocket& /*socket*/, std::int64_t tag,
                                      const std::error_code& error) override {
    EXPECT_TRUE(queue_->isCurrent());
    add("not sent " + std::to_string(tag) + " " + error.default_error_condition().message());
  }

 private:
  std::shared_ptr<DispatchQueue> queue_;
};

class UdpSocketTest : public QueueTest {
 protected:
  ~UdpSocketTest() override { sendFailures = 0; }

  void open(std::uint16_t port = 0) {
    std::error_code error;
    EXPECT_TRUE(socket_->enableBroadcast(true, error)) << error.message();
    EXPECT_TRUE(socket_->bindToPort(port, error)) << error.message();
    EXPECT_TRUE(socket_->beginReceiving(error)) << error.message();
  }

  void send(std::string data, std::int64_t tag = 0, double timeout = -1) {
    socket_->sendData(std::move(data), "127.0.0.1", raw_.port(), timeout, tag);
  }

  static void failSending(int failure, int times) {
    sendFailure = failure;
    sendFailures = times;
  }

  [[nodiscard]] std::string notSent(std::int64_t tag, std::errc reason) const {
    return "not sent " + std::to_string(tag) + " " + std::make_error_condition(reason).message();
  }

  std::shared_ptr<UdpEvents> events_ = std::make_shared<UdpEvents>(queue_);
  std::shared_ptr<GCDAsyncUdpSocket> socket_ = GCDAsyncUdpSocket::make(events_, queue_);
  RawDatagrams raw_;
};

TEST_F(UdpSocketTest, DatagramsGoBothWaysWhole) {
  open();
  std::vector<std::string> datagrams = {"first", "", "\0\xFF\n"s, std::string(65'507, 'x')};
  for (int i = 0; i < 200; ++i) datagrams.push_back(std::to_string(i));
  std::vector<std::string> expected;
  for (const std::string& datagram : datagrams) {
    send(datagram);
    EXPECT_EQ(raw_.receive(), datagram);
    EXPECT_EQ(raw_.senderPort(), socket_->localPort());
    expected.push_back("received 127.0.0.1:" + std::to_string(raw_.port()) + " " + datagram);
    raw_.send(datagram, socket_->localPort());
  }
  ASSERT_TRUE(events_->waitFor("received", datagrams.size()));
  EXPECT_TRUE(events_->take() == expected);

  socket_->sendData("all", "127.255.255.255", socket_->localPort(), -1, 0);
  EXPECT_TRUE(events_->waitFor("received 127.0.0.1:" + std::to_string(socket_->localPort()) + " all"));

  const HeldQueue held(queue_);
  send("goodbye");
  socket_.reset();
  EXPECT_EQ(raw_.receive(), "goodbye") << "sending is over when the call returns";
}

TEST_F(UdpSocketTest, TellsWhatIsNotSent) {
  using enum std::errc;
  std::error_code error;
  EXPECT_EQ(socket_->localPort(), 0);
  send("unbound", 1);
  EXPECT_FALSE(socket_->beginReceiving(error));
  EXPECT_EQ(error, not_connected);
  EXPECT_FALSE(socket_->bindToPort(raw_.port(), error));
  EXPECT_EQ(error, address_in_use);
  send("failed to bind", 2);
  std::vector<std::string> expected = {notSent(1, not_connected), notSent(2, not_connected)};
  open();
  std::int64_t tag = 2;
  for (const char* host : {"", "localhost", "127.0.0", "1.2.3.4.5", "256.0.0.1", "::1", " 127.0.0.1", "127.0.0.1\n"}) {
    socket_->sendData("data", host, raw_.port(), -1, ++tag);
    expected.push_back(notSent(tag, invalid_argument));
  }
  send(std::string(65'508, 'x'), ++tag);
  expected.push_back(notSent(tag, message_size));
  ASSERT_TRUE(socket_->enableBroadcast(false, error));
  socket_->sendData("all", "127.255.255.255", raw_.port(), -1, ++tag);
  expected.push_back(notSent(tag, permission_denied));
  EXPECT_TRUE(events_->waitFor("not sent", expected.size()));
  EXPECT_EQ(events_->take(), expected);
  EXPECT_TRUE(raw_.isEmpty());
}

TEST_F(UdpSocketTest, WhatHasToWaitIsSentInOrder) {
  open();
  for (const int failure : {EAGAIN, ENOBUFS, ENOMEM}) {
    SCOPED_TRACE(failure);
    failSending(failure, 4);
    for (const char* data : {"a", "b", "c"}) send(data);
    if (failure != EAGAIN) {
      waitForTasks(queue_);
      EXPECT_TRUE(raw_.isEmpty());
      sendFailures = 1;
      letTimePass(10ms);
      letTimePass(10ms);
    }
    for (const char* data : {"a", "b", "c"}) EXPECT_EQ(raw_.receive(), data);
    waitForTasks(queue_);
  }
  failSending(ENOBUFS, 1);
  for (int i = 0; i < 200; ++i) send(std::to_string(i));
  for (int i = 0; i < 200; ++i) ASSERT_EQ(raw_.receive(), std::to_string(i));
  EXPECT_EQ(events_->all(), std::vector<std::string>());
}

TEST_F(UdpSocketTest, WaitingEnds) {
  using enum std::errc;
  open();
  failSending(ENOBUFS, 1'000'000);
  send("a", 1, 60);
  send("b", 2, 5);
  send("c", 3, 1e300);
  letTimePass(4999ms);
  EXPECT_EQ(events_->count(""), 0U);
  clock_->advance(1ms);
  EXPECT_TRUE(events_->waitFor(notSent(2, timed_out)));
  failSending(EPERM, 1);
  clock_->advance(10ms);
  EXPECT_TRUE(events_->waitFor(notSent(1, operation_not_permitted)));
  EXPECT_EQ(raw_.receive(), "c");

  failSending(ENOBUFS, 1'000'000);
  for (std::size_t i = 0; i < DatagramSocket::unsentLimit; ++i) send("d");
  EXPECT_EQ(events_->take().size(), 2U);
  send("e", 4);
  EXPECT_TRUE(events_->waitFor(notSent(4, no_buffer_space)));
  sendFailures = 0;
  socket_->close();
  letTimePass(10ms);
  EXPECT_EQ(events_->count(""), 1U);
  EXPECT_TRUE(raw_.isEmpty());
}

TEST_F(UdpSocketTest, NothingIsToldAfterTheEnd) {
  for (const bool isDestroyed : {false, true}) {
    socket_ = GCDAsyncUdpSocket::make(events_, queue_);
    open();
    const std::uint16_t port = socket_->localPort();
    {
      const HeldQueue held(queue_);
      for (int i = 0; i < 10; ++i) raw_.send("data", port);
      events_->onReceive = [&] {
        socket_->sendData("data", "nowhere", 1, -1, 2);
        isDestroyed ? socket_.reset() : socket_->close();
      };
    }
    ASSERT_TRUE(events_->waitFor("received"));
    waitForTasks(queue_);
    EXPECT_EQ(events_->take().size(), 1U);
    if (socket_) {
      std::error_code error;
      send("late", 3);
      EXPECT_EQ(socket_->localPort(), 0);
      EXPECT_FALSE(socket_->bindToPort(port, error));
      EXPECT_FALSE(socket_->enableBroadcast(true, error));
    }
    EXPECT_NO_THROW(RawDatagrams{port}) << "the port is free again";
    waitForTasks(queue_);
    EXPECT_EQ(events_->count(""), 0U);
  }
}

TEST_F(UdpSocketTest, OperationsComeFromAnyThread) {
  open();
  const std::uint16_t port = socket_->localPort();
  std::atomic<bool> isClosed{false};
  const auto sendOn = [&] {
    for (int round = 0; !isClosed; ++round) {
      if (round % 50 == 0) failSending(EAGAIN, 3);
      if (round % 20 == 0) waitForTasks(queue_);
      socket_->sendData("data", round % 10 == 0 ? "nowhere" : "127.0.0.1", port, 10, 1);
    }
  };
  {
    const std::jthread threads[] = {std::jthread(sendOn), std::jthread(sendOn), std::jthread(sendOn)};
    EXPECT_TRUE(events_->waitFor("received", 1000));
    EXPECT_TRUE(events_->waitFor("not sent", 100));
    socket_->close();
    isClosed = true;
  }
}

}  // namespace
}  // namespace vesko
