#include <optional>
#include <thread>

#include "tests/socket/sockets/SocketFixture.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/IsSoon.h"

namespace vesko {
namespace {

using namespace std::chrono_literals;

/// More than the system holds for a receiver that does not read.
const std::string tooMuch(32 * 1024 * 1024, 'x');

TEST_F(SocketTest, AReadTimesOut) {
  RawConnection peer = connect();
  socket_->readDataToLength(2, -1, 1);
  socket_->readDataToLength(4, 5, 2);
  letTimePass(24h);
  ASSERT_TRUE(peer.send("0123"));
  ASSERT_TRUE(events_->waitFor("reading 2 2"));
  letTimePass(4900ms);
  EXPECT_EQ(events_->count("disconnected"), 0U) << "its time runs from the moment that it is the first in line";
  events_->extension = 60;
  letTimePass(100ms);
  ASSERT_TRUE(events_->waitFor("timed out 2 5.0"));
  letTimePass(59900ms);
  EXPECT_EQ(events_->count("timed out"), 1U);
  clock_->advance(100ms);
  EXPECT_TRUE(endsWith("read: Connection timed out"));
  EXPECT_EQ(events_->count("timed out 2 65.000000 2"), 1U);
}

TEST_F(SocketTest, AWriteThatTimesOutAsksForMoreTime) {
  const RawConnection peer = connect();
  events_->extension = 5;
  socket_->writeData(Data("small"), 10, 1);
  socket_->writeData(Data(tooMuch), 10, 2);
  ASSERT_TRUE(clock_->waitForAlarm());
  clock_->advance(10s);
  ASSERT_TRUE(events_->waitFor("timed out 2 10.0"));
  letTimePass(4900ms);
  EXPECT_EQ(events_->count("timed out"), 1U);
  clock_->advance(100ms);
  EXPECT_TRUE(endsWith("write: Connection timed out"));
  EXPECT_EQ(events_->count("timed out 2 15.000000 " + std::to_string(events_->sumOf("writing 2"))), 1U);
  EXPECT_EQ(events_->startingWith("wrote"), std::vector<std::string>{"wrote 1"});
}

TEST_F(SocketTest, AConnectionThatStallsOrIsNeverMadeTimesOut) {
  RawConnection peer = connect(90);
  socket_->writeData(Data(tooMuch), -1, 1);
  ASSERT_TRUE(clock_->waitForAlarm());
  letTimePass(89s);
  (void)peer.receive(1024 * 1024);  // less than what makes it writable again
  letTimePass(1s);
  EXPECT_GT(events_->count("writing 1 0"), 0U) << "what is acknowledged is told";
  letTimePass(89s);
  EXPECT_EQ(events_->count("disconnected"), 0U);
  letTimePass(1s);
  EXPECT_TRUE(endsWith("write: Connection timed out"));

  const SilentListener silent;
  events_ = std::make_shared<SocketEvents>();
  socket_ = GCDAsyncSocket::make(events_, queue_);
  SocketError error;
  ASSERT_TRUE(socket_->connectToHost("127.0.0.1", silent.port(), 10, error));
  letTimePass(9900ms);
  EXPECT_TRUE(events_->all().empty());
  letTimePass(100ms);
  EXPECT_TRUE(endsWith("connect: Connection timed out"));
}

TEST_F(SocketTest, DisconnectingForgetsWhatIsQueued) {
  for (const bool withReset : {false, true}) {
    RawConnection peer = connect();
    socket_->readDataToLength(1, -1, 1);
    socket_->writeData(Data(tooMuch), -1, 2);
    withReset ? socket_->disconnectWithReset() : socket_->disconnect();
    socket_->disconnect();
    EXPECT_TRUE(endsWith("none"));
    EXPECT_LT(peer.receiveAll().size(), tooMuch.size());
    EXPECT_EQ(events_->count("wrote"), 0U);
    EXPECT_TRUE(!withReset || peer.error() == std::errc::connection_reset);
  }
}

TEST_F(SocketTest, DisconnectingAfterWritingWaitsForTheOtherSide) {
  enum class Answer { close, reset, silence };
  const std::pair<Answer, std::string> cases[] = {
      {Answer::close, "none"},
      {Answer::reset, "write: Connection reset by peer"},
      {Answer::silence, "write: " + make_error_code(SocketErrc::unconfirmed).message()}};
  for (const auto& [answer, end] : cases) {
    SCOPED_TRACE(end);
    RawConnection peer = connect();
    socket_->writeData(Data(tooMuch), -1, 1);
    socket_->disconnectAfterWriting();
    constexpr std::size_t piece = 512 * 1024;
    for (std::size_t received = 0; received < tooMuch.size(); received += piece) {
      ASSERT_EQ(peer.receive(piece).size(), piece);
      clock_->advance(89s);  // no time-out for as long as bytes are taken
      waitForTasks(queue_);
    }
    EXPECT_EQ(peer.receiveAll(), "");
    EXPECT_FALSE(peer.error()) << "the stream ends in good order";
    peer.send("unexpected");
    letTimePass(500ms);
    letTimePass(89s);
    EXPECT_EQ(events_->count("disconnected"), 0U);
    if (answer == Answer::close) peer.close();
    if (answer == Answer::reset) peer.reset();
    if (answer == Answer::silence) clock_->advance(1500ms);
    EXPECT_TRUE(endsWith(end));
  }
}

TEST_F(SocketTest, AnOtherSideThatEndsBeforeItHasTakenEverythingIsNotBelieved) {
  enum class Answer { takesTheRest, reset, silence, neverEnds };
  const std::string data(1024 * 1024, 'x');  // what one side holds for sending, but not the other unread
  for (const auto answer : {Answer::takesTheRest, Answer::reset, Answer::silence, Answer::neverEnds}) {
    SCOPED_TRACE(static_cast<int>(answer));
    RawConnection peer = connect();
    socket_->writeData(Data(data), -1, 1);
    socket_->disconnectAfterWriting();
    ASSERT_TRUE(events_->waitFor("wrote 1"));
    if (answer != Answer::neverEnds) peer.endSending();
    waitForTasks(queue_);
    EXPECT_EQ(events_->count("disconnected"), 0U);
    if (answer == Answer::takesTheRest) {
      EXPECT_EQ(peer.receiveAll().size(), data.size());
    }
    if (answer == Answer::reset) peer.reset();
    // The end of the other side has to be noticed before its time has passed, so time goes slowly.
    for (int step = 0; step < 90'000 && events_->count("disconnected") == 0; ++step) {
      waitForTasks(queue_);
      clock_->advance(answer >= Answer::silence && step > 9'000 ? 91s : 100us);
    }
    ASSERT_TRUE(events_->waitFor("disconnected"));
    const std::string end = answer == Answer::takesTheRest ? "disconnected none" : "disconnected write: ";
    EXPECT_TRUE(events_->all().back().starts_with(end)) << events_->all().back();
  }
}

TEST_F(SocketTest, ListenersAcceptUntilTheyAreDisconnectedAndPauseWithoutDescriptors) {
  SocketError error;
  ASSERT_TRUE(socket_->acceptOnPort(0, error));
  std::vector<RawConnection> peers;
  for (int i = 0; i < 100; ++i) peers.push_back(RawConnection::to(socket_->localPort()));
  ASSERT_TRUE(events_->waitFor("accepted 127.0.0.1", 100));
  waitForTasks(queue_);
  std::optional<FewDescriptors> one(1);
  peers.push_back(RawConnection::to(socket_->localPort()));
  EXPECT_TRUE(clock_->waitForAlarm());
  one.reset();
  EXPECT_EQ(events_->count("accepted"), 100U);
  clock_->advance(100ms);
  EXPECT_TRUE(events_->waitFor("accepted", 101));
  socket_->disconnect();
  EXPECT_TRUE(endsWith("none"));
  EXPECT_ANY_THROW((void)RawConnection::to(socket_->localPort()));
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
  EXPECT_TRUE(isSoon([&] { return delegate.expired(); }));
  ASSERT_TRUE(peer.send("3"));
  waitForTasks(queue_);
  socket_.reset();
  (void)peer.receiveAll();
  EXPECT_NE(peer.error(), std::errc::resource_unavailable_try_again) << "a socket that is destroyed is closed";
}

}  // namespace
}  // namespace vesko
