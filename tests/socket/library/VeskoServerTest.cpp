#include "VeskoKit/VeskoServer.h"

#include <optional>
#include <system_error>

#include "tests/socket/library/VeskoServerFixture.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/ListingApp.h"
#include "tests/support/RawDatagrams.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::metadata;

/// Comes back to the service when it goes.
class ReturningObserver final : public VeskoPeerDiscoveryDelegate,
                                public VeskoIncomingTransferDelegate,
                                public VeskoTransferOutcomeDelegate,
                                public VeskoIncomingTransferGuard {
 public:
  ReturningObserver(VeskoServer& server, int& returns) : server_(server), returns_(returns) {}
  ReturningObserver(const ReturningObserver&) = delete;
  ReturningObserver& operator=(const ReturningObserver&) = delete;
  ~ReturningObserver() override {
    server_.pruneFinishedTransfers();
    ++returns_;
  }

 private:
  VeskoServer& server_;
  int& returns_;
};

/// Keeps the names of the elements that were done.
class NotingTransfer final : public VeskoIncomingTransfer {
 public:
  using VeskoIncomingTransfer::VeskoIncomingTransfer;
  void doNextFile() override {
    if (currentElementPlusOne > 0) receivedNames().push_back(currentName());
    VeskoIncomingTransfer::doNextFile();
  }
};

class NotingServer final : public VeskoServer {
 public:
  using VeskoServer::VeskoServer;

 protected:
  std::shared_ptr<VeskoIncomingTransfer> makeIncomingTransfer(std::shared_ptr<GCDAsyncSocket> socket, std::string key,
                                                              std::shared_ptr<VeskoIncomingTransferDelegate> delegate,
                                                              VeskoIncomingTransferSettings settings) override {
    return VeskoIncomingTransfer::make<NotingTransfer>(std::move(socket), std::move(key), std::move(delegate),
                                                       incomingDispatchQueue(), std::move(settings));
  }
};

/// Sends what arrives to a folder for each address.
class FolderOfSender final : public VeskoIncomingTransferGuard {
 public:
  void incomingTransferAwaitsDecision(VeskoIncomingTransfer& transfer) override {
    transfer.proceed(VeskoIncomingTransferSettings::unlimited, transfer.basePath() + '/' + transfer.remoteAddress());
  }
};

TEST_F(VeskoServerTest, AHostHasTransfersOfItsOwnKindGoToFoldersOfItsChoice) {
  server_ = std::make_shared<NotingServer>(0, 0, clock_);
  server_->downloadsFolder = folder_.path("downloads");
  server_->setIncomingDelegate(recorder_);
  server_->setIncomingOutcomeDelegate(recorder_);
  server_->setIncomingGuard(std::make_shared<FolderOfSender>());
  ASSERT_TRUE(receive(metadata(1, 1) + file("a", "1"), "finished"));
  const auto transfer = server_->pendingIncomingTransfers().at(0);
  EXPECT_EQ(transfer->receivedNames(), Strings{"a"});
  EXPECT_EQ(delivered(), Strings{"127.0.0.1"});
  EXPECT_EQ(folder_.read("downloads/127.0.0.1/a"), "1");
  EXPECT_EQ(recorder_->startingWith("[saved"), Strings{"[saved " + folder_.path("downloads/127.0.0.1/a") + "]"});
  EXPECT_EQ(recorder_->count("[progress 1 0 1 1 a " + transfer->currentBasePath() + "/a"), 1U);
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
  EXPECT_EQ(transfers[0]->key().size(), 32U);
  first.send(metadata(0, 0));
  ASSERT_TRUE(recorder_->waitFor("[outcome finished]"));
  EXPECT_EQ(server_->pendingIncomingTransfers().size(), 2U) << "only the host drops transfers";
  server_->pruneFinishedTransfers();
  EXPECT_EQ(server_->pendingIncomingTransfers(), std::vector{transfers[1]});
}

TEST_F(VeskoServerTest, AnObserverMayComeBackWhenItGoes) {
  int returns = 0;
  for (int i = 0; i < 2; ++i) {
    server_->setDelegate(std::make_shared<ReturningObserver>(*server_, returns));
    server_->setIncomingDelegate(std::make_shared<ReturningObserver>(*server_, returns));
    server_->setIncomingOutcomeDelegate(std::make_shared<ReturningObserver>(*server_, returns));
    server_->setIncomingGuard(std::make_shared<ReturningObserver>(*server_, returns));
  }
  EXPECT_EQ(returns, 4);
  server_->setDelegate(nullptr);
  server_->setIncomingDelegate(nullptr);
  server_->setIncomingOutcomeDelegate(nullptr);
  server_->setIncomingGuard(nullptr);
  EXPECT_EQ(returns, 8);
}

TEST_F(VeskoServerTest, TakenPortsAreShownAndListedUntilTheNextStart) {
  std::optional<RawDatagrams> udp(std::in_place);
  std::optional<RawListener> tcp(std::in_place), http(std::in_place);
  const auto application = std::make_shared<ListingApp>();
  server_ = std::make_shared<VeskoServer>(0, static_cast<std::uint16_t>(http->port() - 1), clock_);
  server_->application = application;
  server_->localUdpPort = udp->port();
  server_->localTcpPort = tcp->port();
  server_->startServer();
  const std::pair<std::string, std::string> expected[] = {
      {"udp",
       "Our cute veskos cannot put their ears on the UDP port 4644 so they cannot hear any sounds from other veskos."},
      {"http", "Our cute veskos cannot put their ears on the TCP port 4645 so they cannot know how other veskos look."},
      {"tcp", "Our cute veskos cannot put their ears on the TCP port 4644 so they cannot learn any new secrets."}};
  const auto& failed = server_->failedEndpoints();
  ASSERT_EQ(failed.size(), std::size(expected));
  Strings told;
  for (const auto& endpoint : failed) {
    const auto* const found =
        std::ranges::find(expected, endpoint.endpoint, &std::pair<std::string, std::string>::first);
    ASSERT_NE(found, std::end(expected)) << endpoint.endpoint;
    EXPECT_EQ(endpoint.message, found->second);
    EXPECT_EQ(endpoint.error, std::errc::address_in_use);
    told.insert(told.end(), {found->second, "terminate"});
  }
  EXPECT_EQ(application->all(), told);
  server_->sayHello();
  EXPECT_TRUE(udp->isEmpty()) << "what it cannot hear answers to it does not ask";
  udp.reset();
  tcp.reset();
  http.reset();
  server_->startServer();
  EXPECT_TRUE(server_->failedEndpoints().empty());
}

TEST_F(VeskoServerTest, WithoutDescriptorsItIsNotMade) {
  std::vector<std::error_code> errors;
  for (rlim_t count = 0; count <= errors.size(); ++count) {
    const FewDescriptors few(count);
    try {
      (void)std::make_shared<VeskoServer>(0, 0, clock_);
    } catch (const std::system_error& error) {
      errors.push_back(error.code());
    }
  }
  EXPECT_FALSE(errors.empty());
  for (const auto& error : errors) EXPECT_EQ(error, std::errc::too_many_files_open);
}

TEST_F(VeskoServerTest, TransfersFromServiceToServiceAllAtOnce) {
  Log::setSink(nullptr);
  constexpr int count = 8;
  const TemporaryFolder source;
  const auto sender = std::make_shared<VeskoServer>(0, 0, clock_);
  const auto sent = std::make_shared<Recorder>();
  server_->startServer();
  const auto peer =
      std::make_shared<VeskoPeer>("key", "127.0.0.1", server_->boundTcpPort(), "", VeskoPeer::TimePoint());
  const auto send = [&](VeskoItems items) {
    const auto queue = DispatchQueue::serial("transfer");
    const auto transfer = std::make_shared<VeskoTransfer>(std::move(items), peer, queue);
    transfer->setOutcomeDelegate(sent);
    sender->startTransfer(transfer);
  };
  for (int i = 0; i < count; ++i) {
    const std::string name = std::to_string(i);
    source.write(name + "/large", std::string(400'000, name[0]));
    for (int j = 0; j < 50; ++j) source.write(name + "/sub/" + std::to_string(j), name);
    send(VeskoTransfer::itemsForPaths({source.path(name)}));
  }
  send(VeskoTransfer::itemsForText("a text"));
  ASSERT_TRUE(sent->waitFor("[outcome finished]", count + 1));
  ASSERT_TRUE(recorder_->waitFor("[outcome finished]", count + 1));
  EXPECT_EQ(recorder_->count("[text a text]"), 1U);
  EXPECT_TRUE(folder_.tree("downloads") == source.tree());
  EXPECT_EQ(sender->pendingTransfers().size(), std::size_t{count + 1});
  sender->pruneFinishedTransfers();
  EXPECT_TRUE(sender->pendingTransfers().empty());
}

}  // namespace
}  // namespace vesko
