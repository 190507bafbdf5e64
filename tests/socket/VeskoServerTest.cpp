#include "VeskoKit/VeskoServer.h"

#include <algorithm>
#include <cctype>

#include "Platform/NSApp.h"
#include "tests/socket/VeskoServerFixture.h"
#include "tests/support/TimeZone.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::metadata;

/// 5 March 2024, midnight in UTC.
constexpr std::chrono::system_clock::time_point midnight{std::chrono::seconds(1'709'596'800)};

class RecordingApp final : public NSApp, public EventList {
 public:
  void runModal(const std::string& messageText) override { add(messageText); }
  void terminate() override { add("terminate"); }
};

TEST_F(VeskoServerTest, DeliversUnderFreeNames) {
  const TimeZone zone("UTC");
  const std::string single = metadata(1, 1) + file("photo.tar.gz", "1");
  const std::string several = metadata(2, 2) + file("a", "1") + file("b", "2");
  clock_->setNow(midnight + std::chrono::hours(14) + std::chrono::minutes(5));
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(receive(single, "finished"));
  ASSERT_TRUE(receive(several, "finished"));
  clock_->setNow(midnight + std::chrono::hours(2) + std::chrono::minutes(5));
  ASSERT_TRUE(receive(several, "finished"));
  EXPECT_EQ(events().at(events().size() - 3), "[saved DOWNLOADS/Received by Vesko at 2024-03-05 02-05 (2)]")
      << "twelve hours lie between two minutes of one name";
  EXPECT_EQ(delivered(), (Strings{"Received by Vesko at 2024-03-05 02-05", "Received by Vesko at 2024-03-05 02-05 (2)",
                                  "photo.tar (2).gz", "photo.tar (3).gz", "photo.tar.gz"}));
  EXPECT_EQ(folder_.entries("downloads/Received by Vesko at 2024-03-05 02-05 (2)"), (Strings{"a", "b"}));
}

TEST_F(VeskoServerTest, KeepsTransfersInTheirOrderUntilTheyArePruned) {
  RawConnection first = connect();
  ASSERT_TRUE(recorder_->waitFor("[start]"));
  const auto other = std::make_shared<Recorder>();
  server_->setIncomingDelegate(other);
  RawConnection second = connect();
  ASSERT_TRUE(other->waitFor("[start]"));
  waitForTasks(server_->incomingDispatchQueue());
  const auto transfers = server_->pendingIncomingTransfers();
  ASSERT_EQ(transfers.size(), 2U);
  EXPECT_EQ(transfers[0]->delegate(), recorder_);
  EXPECT_EQ(transfers[1]->delegate(), other);
  EXPECT_EQ(transfers[1]->remoteAddress(), "127.0.0.1");
  EXPECT_NE(transfers[0]->key(), transfers[1]->key());
  for (const auto& transfer : transfers) {
    EXPECT_EQ(transfer->key().size(), 32U);
    EXPECT_TRUE(std::ranges::all_of(transfer->key(), [](unsigned char byte) { return std::isalnum(byte) != 0; }));
  }
  first.send(metadata(0, 0));
  ASSERT_TRUE(recorder_->waitFor("[outcome finished]"));
  EXPECT_EQ(server_->pendingIncomingTransfers().size(), 2U) << "only the host drops transfers";
  server_->pruneFinishedTransfers();
  EXPECT_EQ(server_->pendingIncomingTransfers(), std::vector{transfers[1]});
}

TEST_F(VeskoServerTest, ATakenPortIsShownAndListed) {
  const RawListener taken;
  const auto application = std::make_shared<RecordingApp>();
  server_->application = application;
  server_->localTcpPort = taken.port();
  server_->startServer();
  const std::string message =
      "Our cute veskos cannot put their ears on the TCP port 4644 so they cannot learn any new secrets.";
  EXPECT_EQ(application->startingWith("Our cute veskos cannot put their ears on the TCP port 4644"), Strings{message});
  EXPECT_EQ(application->all().back(), "terminate");
  const auto& failed = server_->failedEndpoints();
  const auto tcp = std::ranges::find(failed, "tcp", &VeskoFailedEndpoint::endpoint);
  ASSERT_NE(tcp, failed.end());
  EXPECT_EQ(tcp->message, message);
  EXPECT_EQ(tcp->error, std::errc::address_in_use);
}

TEST_F(VeskoServerTest, TransfersFromServiceToServiceAllAtOnce) {
  Log::setSink(nullptr);
  constexpr int count = 8;
  const TemporaryFolder source;
  const auto sender = std::make_shared<VeskoServer>(clock_);
  const auto sent = std::make_shared<Recorder>();
  server_->startServer();
  const auto peer = std::make_shared<VeskoPeer>("key", "127.0.0.1", server_->boundTcpPort(), "", midnight);
  const auto send = [&](VeskoItems items) {
    const auto queue = DispatchQueue::serial("transfer");
    const auto transfer = std::make_shared<VeskoTransfer>(std::move(items), peer, queue);
    transfer->setOutcomeDelegate(sent);
    sender->startTransfer(transfer);
  };
  for (int i = 0; i < count; ++i) {
    const std::string name = "folder " + std::to_string(i);
    source.write(name + "/large", std::string(400'000, static_cast<char>('a' + i)));
    for (int j = 0; j < 50; ++j) source.write(name + "/sub/" + std::to_string(j), std::to_string(i * j));
    source.makeFolder(name + "/empty");
    send(VeskoTransfer::itemsForPaths({source.path(name)}));
  }
  send(VeskoTransfer::itemsForText("a text"));
  ASSERT_TRUE(sent->waitFor("[outcome finished]", count + 1));
  ASSERT_TRUE(recorder_->waitFor("[outcome finished]", count + 1));
  EXPECT_EQ(recorder_->count("[text a text]"), 1U);
  ASSERT_EQ(delivered().size(), std::size_t{count});
  for (int i = 0; i < count; ++i) {
    const std::string name = "downloads/folder " + std::to_string(i);
    EXPECT_EQ(folder_.entries(name), (Strings{"empty", "large", "sub"}));
    EXPECT_TRUE(folder_.read(name + "/large") == std::string(400'000, static_cast<char>('a' + i)));
    for (int j = 0; j < 50; ++j) EXPECT_EQ(folder_.read(name + "/sub/" + std::to_string(j)), std::to_string(i * j));
  }
  EXPECT_EQ(sender->pendingTransfers().size(), std::size_t{count + 1});
  sender->pruneFinishedTransfers();
  EXPECT_TRUE(sender->pendingTransfers().empty());
}

}  // namespace
}  // namespace vesko
