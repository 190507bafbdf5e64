#include "hosts/common/Session.h"

#include <atomic>
#include <cstdlib>

#include "hosts/common/EventJson.h"
#include "tests/hosts/CliFixture.h"
#include "tests/support/EventList.h"
#include "tests/support/StreamBytes.h"

namespace vesko {
namespace {

class SlowSink final : public EventSink, public EventList {
 public:
  void publish(Event event) override { add(jsonLine(event)); }
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
  EXPECT_TRUE(treeOf("in").empty());
  sink->isOverwhelmed_ = false;
  RawConnection::to(settings.port).send(StreamBytes::folderWithFile());
  EXPECT_TRUE(sink->waitFor(R"({"event":"finished","transfer":1)")) << "of the other one there was nothing to tell";
  EXPECT_EQ(treeOf("in").size(), 2U);
}

}  // namespace
}  // namespace vesko
