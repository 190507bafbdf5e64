#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include "tests/hostile/HostileFixture.h"

namespace vesko {
namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;
using std::chrono::seconds;
using StreamBytes::file;
using StreamBytes::header;
using StreamBytes::metadata;

TEST_F(HostileTest, ASenderThatStopsTimesOut) {
  constexpr std::uint64_t longestText = 64ULL << 20U;
  const struct {
    std::string stream;
    std::string awaited;
    seconds bound;
  } cases[] = {
      {"", "[start]", seconds(5)},
      {metadata(1, 5), "Incoming transfer", seconds(5)},
      {metadata(1, 5) + "nam", "Incoming didRead 1 4", seconds(5)},
      {metadata(1, 5) + "name\0\5\0"s, "Incoming path", seconds(5)},
      {metadata(1, 5) + header("name", 5) + "1234", "Incoming item size", seconds(60)},
      {metadata(2, 5) + header(std::string(256, 'x'), 5) + "1234", "Incoming item size", seconds(60)},
      {metadata(1, 5) + header(StreamBytes::textName, longestText) + "x", "Incoming item size", seconds(60)},
  };
  for (const auto& [stream, awaited, bound] : cases) {
    SCOPED_TRACE(awaited);
    recorder_->take();
    RawConnection sender = connect();
    ASSERT_TRUE(sender.send(stream));
    ASSERT_TRUE(recorder_->waitFor(awaited, awaited.ends_with("1 4") ? 3 : 1));
    ASSERT_TRUE(clock_->waitForAlarm());
    waitForTasks(server_->incomingDispatchQueue());
    clock_->advance(bound - milliseconds(100));
    waitForTasks(server_->incomingDispatchQueue());
    EXPECT_EQ(recorder_->count("[outcome"), 0U);
    clock_->advance(milliseconds(100));
    ASSERT_TRUE(endsWith("failed timedOut"));
    EXPECT_EQ(delivered(), Strings());
  }
  expectGoodService();
}

TEST_F(HostileTest, ANameMayComeSlowlyButNoNumberMay) {
  const std::string name = "a name of 24 characters.";
  recorder_->take();
  auto sender = connect();
  ASSERT_TRUE(sender.send(metadata(1, 1)));
  ASSERT_TRUE(recorder_->waitFor("Incoming transfer"));
  const auto letTimePass = [&] {
    waitForTasks(server_->incomingDispatchQueue());
    clock_->advance(seconds(4));
    waitForTasks(server_->incomingDispatchQueue());
  };
  std::size_t sent = 0;
  for (const char byte : name + '\0') {
    letTimePass();
    ASSERT_TRUE(sender.send({&byte, 1}));
    ASSERT_TRUE(recorder_->waitFor("Incoming didRead 1 4", ++sent));
  }
  letTimePass();
  EXPECT_EQ(recorder_->count("[outcome"), 0U);
  ASSERT_TRUE(sender.send("\1"));
  letTimePass();
  ASSERT_TRUE(endsWith("failed timedOut")) << "one bound holds for all bytes of a size";
  expectGoodService();
}

TEST_F(HostileTest, ABodyMayComeAsSlowlyAsItLikes) {
  recorder_->take();
  auto sender = connect();
  ASSERT_TRUE(sender.send(metadata(1, 1000) + header("name", 1000)));
  ASSERT_TRUE(recorder_->waitFor("Incoming item size"));
  const auto transfer = server_->pendingIncomingTransfers().back();
  const auto letTimePass = [&](seconds time) {
    waitForTasks(server_->incomingDispatchQueue());
    clock_->advance(time);
    waitForTasks(server_->incomingDispatchQueue());
  };
  for (std::uint64_t sent = 1; sent <= 10; ++sent) {
    letTimePass(seconds(50));
    ASSERT_TRUE(sender.send("x"));
    while (transfer->partialSize < sent && recorder_->count("[outcome") == 0) std::this_thread::yield();
  }
  letTimePass(seconds(59));
  EXPECT_EQ(recorder_->count("[outcome"), 0U);
  letTimePass(seconds(1));
  ASSERT_TRUE(endsWith("failed timedOut"));
  expectGoodService();
}

}  // namespace
}  // namespace vesko
