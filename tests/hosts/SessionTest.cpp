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

TEST_F(SessionTest, TurnsTransfersAwayWhileTooMuchWaits) {
  ::setenv("XDG_RUNTIME_DIR", runtime_.path().c_str(), 1);
  const auto sink = std::make_shared<SlowSink>();
  SessionSettings settings;
  settings.port = RawListener(false).port();
  settings.downloadsFolder = folder_.makeFolder("in");
  Session session(sink, settings);
  ASSERT_TRUE(session.startReceiving());
  const auto send = [&] { RawConnection::to(settings.port).send(StreamBytes::folderWithFile()); };
  sink->isOverwhelmed_ = true;
  send();
  EXPECT_TRUE(sink->waitFor(R"({"event":"failed","transfer":1,"reason":"cancelled")"));
  EXPECT_TRUE(treeOf("in").empty());
  sink->isOverwhelmed_ = false;
  send();
  EXPECT_TRUE(sink->waitFor(R"({"event":"finished","transfer":2)"));
  EXPECT_EQ(treeOf("in").size(), 2U);
}

}  // namespace
}  // namespace vesko
