#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "tests/socket/SocketFixture.h"

namespace vesko {
namespace {

using namespace std::chrono_literals;

/// More than the system holds for a receiver that does not read.
const std::string tooMuch(32 * 1024 * 1024, 'x');

TEST_F(SocketTest, AReadTimesOut) {
  RawConnection peer = connect();
  socket_->readDataToLength(2, -1, 1);
  socket_->readDataToLength(4, 5, 2);
  waitForTasks(queue_);
  clock_->advance(24h);
  ASSERT_TRUE(peer.send("0123"));
  ASSERT_TRUE(events_->waitFor("reading 2 2"));
  waitForTasks(queue_);
  clock_->advance(4900ms);
  waitForTasks(queue_);
  EXPECT_EQ(events_->count("disconnected"), 0U) << "its time runs from the moment that it is the first in line";
  clock_->advance(100ms);
  EXPECT_TRUE(endsWith("read: Connection timed out"));
  EXPECT_EQ(peer.receiveAll(), "");
}

TEST_F(SocketTest, AWriteThatTimesOutAsksForMoreTime) {
  const RawConnection peer = connect();
  events_->extension = 5;
  socket_->writeData(Data("small"), 10, 1);
  socket_->writeData(Data(tooMuch), 10, 2);
  ASSERT_TRUE(clock_->waitForAlarm());
  clock_->advance(10s);
  ASSERT_TRUE(events_->waitFor("timed out 2 10.0"));
  waitForTasks(queue_);
  clock_->advance(4900ms);
  waitForTasks(queue_);
  EXPECT_EQ(events_->count("timed out"), 1U);
  clock_->advance(100ms);
  EXPECT_TRUE(endsWith("write: Connection timed out"));
  const auto questions = events_->startingWith("timed out 2");
  ASSERT_EQ(questions.size(), 2U);
  EXPECT_EQ(questions[1], "timed out 2 15.000000 " + std::to_string(events_->sumOf("writing 2")));
  EXPECT_EQ(events_->startingWith("wrote"), std::vector<std::string>{"wrote 1"});
}

TEST_F(SocketTest, DisconnectingForgetsWhatIsQueued) {
  RawConnection peer = connect();
  socket_->readDataToLength(1, -1, 1);
  socket_->writeData(Data(tooMuch), -1, 2);
  socket_->disconnect();
  socket_->disconnect();
  EXPECT_TRUE(endsWith("none"));
  EXPECT_LT(peer.receiveAll().size(), tooMuch.size());
  EXPECT_EQ(events_->count("wrote"), 0U);
}

TEST_F(SocketTest, DisconnectingWithResetIsSeenAsAReset) {
  RawConnection peer = connect();
  socket_->disconnectWithReset();
  EXPECT_TRUE(endsWith("none"));
  EXPECT_EQ(peer.receiveAll(), "");
  EXPECT_EQ(peer.error(), std::errc::connection_reset);
}

TEST_F(SocketTest, DisconnectingAfterWritingWaitsForTheOtherSide) {
  enum class Answer { close, reset, silence };
  const struct {
    Answer answer;
    std::string end;
  } cases[] = {{Answer::close, "none"}, {Answer::reset, "write: Connection reset by peer"}, {Answer::silence, "none"}};
  for (const auto& [answer, end] : cases) {
    SCOPED_TRACE(end);
    events_ = std::make_shared<SocketEvents>();
    socket_ = GCDAsyncSocket::make(events_, queue_);
    RawConnection peer = connect();
    socket_->writeData(Data(tooMuch), -1, 1);
    socket_->disconnectAfterWriting();
    EXPECT_EQ(peer.receiveAll().size(), tooMuch.size());
    EXPECT_FALSE(peer.error()) << "the stream ends in good order";
    peer.send("unexpected");
    waitForTasks(queue_);
    clock_->advance(500ms);
    waitForTasks(queue_);
    clock_->advance(9s);
    waitForTasks(queue_);
    EXPECT_EQ(events_->count("disconnected"), 0U);
    if (answer == Answer::close) peer.close();
    if (answer == Answer::reset) peer.reset();
    if (answer == Answer::silence) clock_->advance(1s);
    EXPECT_TRUE(endsWith(end));
  }
}

TEST_F(SocketTest, AFinishedConnectionDoesNotWaitForeverForAnOtherSideThatStopsReading) {
  const std::string piece(200 * 1024, 'x');
  const auto fill = [&](std::int64_t count) {
    std::int64_t tag = 0;
    while (tag < count) {
      socket_->writeData(Data(piece), -1, ++tag);
      waitForTasks(queue_);
      if (events_->count("wrote") < static_cast<std::size_t>(tag)) break;
    }
    return tag;
  };
  std::int64_t fits = 0;
  {
    const RawConnection peer = connect();
    fits = fill(1000) - 1;
    ASSERT_LT(fits, 999);
  }
  for (const std::int64_t count : {fits, fits + 1}) {
    SCOPED_TRACE(count);
    events_ = std::make_shared<SocketEvents>();
    socket_ = GCDAsyncSocket::make(events_, queue_);
    const RawConnection peer = connect();
    EXPECT_EQ(fill(count), count);
    if (events_->count("wrote") < static_cast<std::size_t>(count)) break;  // an unfinished write has no bound
    socket_->disconnectAfterWriting();
    for (int i = 0; i < 3; ++i) {
      waitForTasks(queue_);
      clock_->advance(11s);
    }
    EXPECT_TRUE(events_->waitFor("disconnected"));
  }
}

TEST_F(SocketTest, DrainingGoesOnForAsLongAsBytesAreTaken) {
  RawConnection peer = connect();
  constexpr std::size_t piece = 512 * 1024;
  const std::string body(8 * piece, 'x');
  socket_->writeData(Data(body), -1, 1);
  socket_->disconnectAfterWriting();
  std::size_t received = 0;
  while (received < body.size()) {
    received += peer.receive(piece).size();
    ASSERT_FALSE(peer.error());
    clock_->advance(9s);
    waitForTasks(queue_);
  }
  EXPECT_EQ(peer.receiveAll(), "");
  EXPECT_FALSE(peer.error());
  peer.close();
  EXPECT_TRUE(endsWith("none"));
}

TEST_F(SocketTest, TheOtherSideEndsTheConnection) {
  for (const bool resets : {false, true}) {
    for (const bool writes : {false, true}) {
      SCOPED_TRACE(testing::Message() << resets << writes);
      events_ = std::make_shared<SocketEvents>();
      socket_ = GCDAsyncSocket::make(events_, queue_);
      RawConnection peer = connect();
      if (writes) {
        socket_->writeData(Data(tooMuch), -1, 1);
        ASSERT_TRUE(events_->waitFor("writing"));
      } else {
        socket_->readDataToLength(4, -1, 1);
        peer.send("ab");
        ASSERT_TRUE(events_->waitFor("reading 1 2"));
      }
      resets ? peer.reset() : peer.close();
      ASSERT_TRUE(events_->waitFor("disconnected"));
      const std::string end = events_->all().back();
      if (writes) {
        EXPECT_TRUE(end == "disconnected write: Connection reset by peer" || end == "disconnected write: Broken pipe")
            << end;
      } else {
        EXPECT_EQ(end, resets ? "disconnected read: Connection reset by peer"
                              : "disconnected read: the connection was closed by the other side");
      }
    }
  }
}

TEST_F(SocketTest, ConnectingFails) {
  SocketError error;
  for (const std::string host : {"", "localhost", "127.0.0.256", "127.0.0.1 ", "::1"}) {
    EXPECT_FALSE(socket_->connectToHost(host, 4644, error)) << host;
    EXPECT_EQ(error.operation, SocketError::Operation::connect);
    EXPECT_EQ(error.code, std::errc::invalid_argument);
  }
  EXPECT_FALSE(socket_->connectToHost("127.0.0.1", 0, error));
  EXPECT_TRUE(error);
  const RawListener refusing(false);
  EXPECT_TRUE(socket_->connectToHost("127.0.0.1", refusing.port(), error));
  EXPECT_FALSE(error);
  EXPECT_TRUE(endsWith("connect: Connection refused"));
  EXPECT_EQ(events_->all().size(), 1U);
}

TEST_F(SocketTest, ListenersAcceptOnTheirQueue) {
  SocketError error;
  ASSERT_TRUE(socket_->acceptOnPort(0, error));
  const auto second = GCDAsyncSocket::make(events_, queue_);
  EXPECT_FALSE(second->acceptOnPort(socket_->localPort(), error));
  EXPECT_EQ(error.operation, SocketError::Operation::listen);
  EXPECT_EQ(error.code, std::errc::address_in_use);

  std::vector<RawConnection> peers;
  for (int i = 0; i < 100; ++i) peers.push_back(RawConnection::to(socket_->localPort()));
  ASSERT_TRUE(events_->waitFor("accepted 127.0.0.1", 100));
  waitForTasks(queue_);
  const auto accepted = events_->accepted;
  EXPECT_EQ(accepted->localPort(), socket_->localPort());
  queue_->async([&] {
    accepted->setDelegate(events_);
    accepted->readDataToLength(4, -1, 1);
    accepted->writeData(Data("answer"), -1, 2);
  });
  ASSERT_TRUE(peers.back().send("call"));
  EXPECT_EQ(peers.back().receive(6), "answer");
  EXPECT_TRUE(events_->waitFor("read 1 4"));

  socket_->disconnect();
  EXPECT_TRUE(endsWith("none"));
  EXPECT_ANY_THROW((void)RawConnection::to(socket_->localPort()));
}

TEST_F(SocketTest, AcceptingPausesWhileThereAreNoDescriptors) {
  SocketError error;
  ASSERT_TRUE(socket_->acceptOnPort(0, error));
  waitForTasks(queue_);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const int lowestFree = ::dup(0);
  ASSERT_EQ(::close(lowestFree), 0);
  const rlimit oneMore{.rlim_cur = static_cast<rlim_t>(lowestFree) + 1, .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &oneMore), 0);
  const RawConnection peer = RawConnection::to(socket_->localPort());
  EXPECT_TRUE(clock_->waitForAlarm());
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(events_->count("accepted"), 0U);
  clock_->advance(100ms);
  EXPECT_TRUE(events_->waitFor("accepted"));
}

TEST_F(SocketTest, AnOtherSideThatNeverStopsSendingHoldsNothingUp) {
  RawConnection peer = connect();
  socket_->writeData(Data("all"), -1, 1);
  socket_->disconnectAfterWriting();
  EXPECT_EQ(peer.receiveAll(), "all");
  ASSERT_TRUE(peer.send(tooMuch));
  std::jthread flood([&peer] {
    while (peer.send(tooMuch)) {
    }
  });
  socket_->disconnect();
  EXPECT_TRUE(endsWith("none"));
}

TEST_F(SocketTest, TheDelegateMayGoAtAnyTime) {
  RawConnection peer = connect();
  socket_->readDataToLength(1, -1, 1);
  socket_->readDataToLength(1, -1, 2);
  const std::weak_ptr<SocketEvents> delegate = events_;
  events_->onRead = [this] { events_.reset(); };
  ASSERT_TRUE(peer.send("12"));
  const auto isGone = [&] {
    waitForTasks(queue_);
    return delegate.expired();
  };
  const auto bound = std::chrono::steady_clock::now() + 10s;
  while (!isGone() && std::chrono::steady_clock::now() < bound) {
  }
  EXPECT_TRUE(isGone());
  ASSERT_TRUE(peer.send("3"));
  waitForTasks(queue_);
  socket_.reset();
  (void)peer.receiveAll();
  EXPECT_NE(peer.error(), std::errc::resource_unavailable_try_again) << "a socket that is destroyed is closed";
}

}  // namespace
}  // namespace vesko
