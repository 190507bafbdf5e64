#include "hosts/common/session/Session.h"

#include <atomic>
#include <cstdlib>

#include "tests/hosts/cli/CliFixture.h"
#include "tests/hosts/events/ListSink.h"
#include "tests/support/FakeClock.h"
#include "tests/support/StreamBytes.h"

namespace vesko {
namespace {

class SlowSink final : public ListSink {
 public:
  bool isOverwhelmed() const override { return isOverwhelmed_; }

  std::atomic<bool> isOverwhelmed_ = false;
};

/// The session of this process itself, in the network of the program's tests.
class SessionTest : public CliTest {};

TEST_F(SessionTest, TurnsConnectionsAwayWhileTooMuchWaits) {
  ::setenv("XDG_RUNTIME_DIR", runtime_.path().c_str(), 1);
  const auto sink = std::make_shared<SlowSink>();
  SessionSettings settings;
  settings.port = RawListener(false).port();
  settings.downloadsFolder = folder_.makeFolder("in");
  Session session(sink, settings);
  ASSERT_TRUE(session.startReceiving());
  sink->isOverwhelmed_ = true;
  auto turnedAway = RawConnection::to(settings.port);
  const bool isSent = turnedAway.send(StreamBytes::folderWithFile());
  EXPECT_EQ(turnedAway.receiveAll(), "");
  EXPECT_TRUE(!isSent || turnedAway.error() == std::errc::connection_reset);
  EXPECT_TRUE(folder_.tree("in").empty());
  sink->isOverwhelmed_ = false;
  RawConnection::to(settings.port).send(StreamBytes::folderWithFile());
  EXPECT_TRUE(sink->waitFor(R"({"event":"finished","transfer":1)")) << "of the other one there was nothing to tell";
  EXPECT_EQ(folder_.tree("in").size(), 2U);
}

TEST_F(SessionTest, GivesUpOnWhoTakesNothingForNinetySeconds) {
  const auto sink = std::make_shared<SlowSink>();
  const auto clock = std::make_shared<FakeClock>();
  const RawListener listener;
  Session session(sink, {}, clock);
  session.send(session.prepare({makeLargeFile()}), {"", "127.0.0.1", listener.port(), "", "", {}});
  const RawConnection receiver = listener.accept();
  ASSERT_TRUE(sink->waitFor(R"({"event":"progress")"));
  for (int second = 0; second < 89; ++second) {
    ASSERT_TRUE(clock->waitForAlarm()) << "given up after " << second << " seconds";
    clock->advance(std::chrono::seconds(1));
  }
  EXPECT_EQ(sink->count(R"({"event":"failed")"), 0U);
  ASSERT_TRUE(clock->waitForAlarm());
  clock->advance(std::chrono::seconds(90));  // some of the others may have passed before all was acknowledged
  EXPECT_TRUE(sink->waitFor(R"({"event":"failed","transfer":1,"reason":"timedOut")"));
}

}  // namespace
}  // namespace vesko
