#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>

#include "VeskoKit/ReceivedItemStorage.h"
#include "tests/hostile/HostileFixture.h"
#include "tests/support/QueueTasks.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::metadata;

/// Senders that break off when there is much to remove, and a disk that does not get on with it.
class BrokenTransfersTest : public HostileTest {
 protected:
  static constexpr std::size_t fileCount = ReceivedItemStorage::quicklyRemovedEntries + 1;

  void holdRemovals() { held_.emplace(server_->removalDispatchQueue()); }

  /// A transfer that has brought many files, and has one yet to bring.
  [[nodiscard]] RawConnection bringMany() {
    std::string stream = metadata(fileCount + 1, 0);
    for (std::size_t i = 0; i < fileCount; ++i) stream += file("many/" + std::to_string(i), "");
    auto sender = connect();
    EXPECT_TRUE(sender.send(stream));
    EXPECT_TRUE(recorder_->waitFor("Finished file", fileCount));
    return sender;
  }

  [[nodiscard]] bool hasStorage() const {
    return std::ranges::any_of(delivered(), [](const auto& name) { return name.starts_with(".Vesko"); });
  }

  std::optional<HeldQueue> held_;
};

TEST_F(BrokenTransfersTest, NobodyWaitsForTheirRemoval) {
  server_->maximumIncomingTransfers = 2;
  auto broken = bringMany();
  holdRemovals();
  ASSERT_TRUE(broken.send(file("..", "")));
  EXPECT_EQ(broken.receiveAll(), "");
  const auto transfer = server_->pendingIncomingTransfers().at(0);
  auto first = connect();
  auto second = connect();
  for (auto* sender : {&first, &second}) ASSERT_TRUE(sender->send(metadata(1, 4) + file("good", "good")));
  ASSERT_TRUE(recorder_->waitFor("[outcome finished]", 2)) << "others go on, as many as ever";
  transfer->cancel();
  waitForTasks(server_->incomingDispatchQueue());
  EXPECT_FALSE(transfer->hasEnded());
  EXPECT_EQ(recorder_->count("[outcome"), 2U);
  EXPECT_TRUE(hasStorage());
  held_.reset();
  ASSERT_TRUE(recorder_->waitFor("[outcome failed unsafeName]"));
  EXPECT_FALSE(hasStorage()) << "not told before it is gone";
  EXPECT_TRUE(transfer->hasEnded());
  waitForTasks(server_->incomingDispatchQueue());
  EXPECT_EQ(recorder_->count("[outcome"), 3U);
  expectGoodService();
}

TEST_F(BrokenTransfersTest, AServiceThatGoesDoesNotWaitForItEither) {
  const auto sender = bringMany();
  holdRemovals();
  const auto incoming = server_->incomingDispatchQueue();
  const auto removal = server_->removalDispatchQueue();
  server_ = std::make_shared<VeskoServer>(0, 0, clock_);
  waitForTasks(incoming);
  EXPECT_TRUE(hasStorage());
  held_.reset();
  waitForTasks(removal);
  EXPECT_FALSE(hasStorage());
}

}  // namespace
}  // namespace vesko
