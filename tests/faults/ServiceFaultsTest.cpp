#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>

#include "Platform/user/NSApp.h"
#include "VeskoKit/DeliveryNames.h"
#include "VeskoKit/ReceivedItemStorage.h"
#include "tests/faults/FaultsFixture.h"
#include "tests/support/FakeClock.h"
#include "tests/support/QueueTasks.h"
#include "tests/support/RawPeer.h"
#include "tests/support/StreamBytes.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Fault = SystemFaults::Fault;
using Names = std::vector<std::string>;

class ServiceFaultsTest : public FaultsTest {
 protected:
  /// Leaves the storage folder of a transfer that died, with something inside that has to be opened first.
  void leaveDeadTransfer() const {
    const auto dead = "downloads/" + std::string(DeliveryNames::storagePrefix) + "20260102030405" +
                      std::string(DeliveryNames::storageRandomLength, 'x');
    folder_.write(dead + "/a/file", "");
    folder_.write(dead + "/a/closed/file", "");
    fs::permissions(folder_.path(dead + "/a/closed"), fs::perms::owner_read | fs::perms::owner_exec);
  }

  /// Starts a service with one fault in force; false when it had nothing left to strike.
  [[nodiscard]] bool startsWith(const Fault& fault) {
    leaveDeadTransfer();
    bool hasStruck = false;
    {
      SystemFaults faults({fault});
      startServer(faults);
      hasStruck = faults.strikes() > 0;
    }
    const auto& failed = server_->failedEndpoints();
    for (const auto& endpoint : failed) EXPECT_EQ(endpoint.error.value(), fault.error) << endpoint.endpoint;
    const bool isListening = std::ranges::find(failed, "tcp", &VeskoFailedEndpoint::endpoint) == failed.end();
    if (isListening) expectNextTransferWorks();
    EXPECT_EQ(isListening, server_->boundTcpPort() != 0);
    stopServer();
    return hasStruck;
  }
};

TEST_F(ServiceFaultsTest, EachCallOfTheStartFails) {
  SystemFaults none({});
  startServer(none);
  stopServer();
  const auto descriptors = openDescriptors();
  const std::pair<int, Names> cases[] = {
      {EMFILE, {"open", "openat", "socket"}},
      {EIO, {"open", "openat", "readdir", "fstat", "fstatat", "unlinkat", "fchmod"}},
      {EACCES, {"open", "openat", "fchmod", "fchmodat", "unlinkat", "bind"}},
      {ENOMEM, {"open", "openat", "fdopendir", "flock", "epoll_ctl"}},
      {ENOBUFS, {"socket", "bind", "listen"}},
      {EINTR, {"open", "openat", "flock"}},
  };
  for (const auto& [error, calls] : cases) {
    for (const auto& call : calls) {
      for (const std::size_t count : {std::size_t{1}, SystemFaults::forever}) {
        if (error == EINTR && count == SystemFaults::forever) continue;
        bool hasStruck = true;
        for (std::size_t first = 1; hasStruck && !HasFailure(); ++first) {
          SCOPED_TRACE(testing::Message() << call << " number " << first << ": " << std::strerror(error));
          hasStruck = startsWith({error, {call}, first, count});
          startServer(none);
          EXPECT_EQ(folder_.entries("downloads"), Names()) << "the next start sweeps";
          stopServer();
          EXPECT_TRUE(waitForDescriptors(descriptors));
        }
      }
    }
  }
}

TEST_F(ServiceFaultsTest, EveryWrappedCallIsMade) {
  std::set<std::string> made;
  const auto note = [&](const SystemFaults& faults) {
    for (const auto& call : SystemFaults::wrappedCalls()) {
      if (faults.callsOf(call) > 0) made.insert(call);
    }
  };
  // Rights are asked for, and given back, only where they seem to be missing.
  fs::permissions(folder_.write("sources/folder/unreadable", ""), fs::perms::none);
  for (std::size_t first = 1; first <= 5; ++first) {
    leaveDeadTransfer();
    SystemFaults faults({{EACCES, {"openat"}, first}});
    startServer(faults);
    note(faults);
    stopServer();
  }
  SystemFaults faults({{EINVAL, {"renameat2"}, 1, SystemFaults::forever}});
  startServer(faults);
  fs::remove_all(downloads());
  (void)faults.asProduct([&] { return VeskoTransfer::itemsForPaths(sendable("several").paths); });
  (void)send(sendable("several"), faults);
  note(faults);
  const auto all = SystemFaults::wrappedCalls();
  EXPECT_EQ(made, std::set(all.begin(), all.end()));
}

class ListenerFaultsTest : public FaultsTest {
 protected:
  ListenerFaultsTest() {
    clock_ = fakeClock_;
    SystemFaults none({});
    startServer(none);
  }

  std::shared_ptr<FakeClock> fakeClock_ = std::make_shared<FakeClock>();
};

TEST_F(ListenerFaultsTest, AcceptingRestsForAsLongAsItFails) {
  constexpr std::size_t turn = 64;
  std::size_t accepted = 0;
  for (const int error : {EMFILE, ENFILE, ENOBUFS, ENOMEM, EACCES, EPERM, EIO}) {
    SCOPED_TRACE(std::strerror(error));
    SystemFaults faults({{error, {"accept4"}, 1, 3 * turn}});
    RawConnection peer = RawConnection::to(server_->boundTcpPort());
    std::size_t before = 0;
    do {
      ASSERT_TRUE(fakeClock_->waitForAlarm());
      waitForTasks(server_->incomingDispatchQueue());
      EXPECT_GT(faults.callsOf("accept4"), before);
      EXPECT_LE(faults.callsOf("accept4"), before + turn) << "time stands still";
      before = faults.callsOf("accept4");
      fakeClock_->advance(100ms);
    } while (before < 3 * turn && !HasFailure());
    EXPECT_TRUE(faults.waitUntilAllAreAccepted());
    peer.close();
    ASSERT_TRUE(received_->waitFor("[outcome", ++accepted)) << "its time-out would be taken for the pause";
  }
  expectNextTransferWorks();
}

TEST_F(ListenerFaultsTest, AConnectionThatCannotBeServedIsReset) {
  SystemFaults faults({{ENOMEM, {"epoll_ctl"}}});
  RawConnection peer = RawConnection::to(server_->boundTcpPort());
  EXPECT_EQ(peer.receiveAll(), "");
  EXPECT_EQ(peer.error(), std::errc::connection_reset) << "an orderly end would mean that all has arrived";
  EXPECT_EQ(faults.strikes(), 1U);
  expectNextTransferWorks();
}

TEST_F(ListenerFaultsTest, KeepsOfAFailedTransferOnlyWhatIsWhole) {
  server_->keepPartial = true;
  for (const std::size_t count : {std::size_t{0}, std::size_t{1}, SystemFaults::forever}) {
    received_->take();
    {
      // The first removal is of what the folder is examined with.
      SystemFaults faults({{EIO, {"unlinkat"}, 2, count}});
      RawConnection sender = RawConnection::to(server_->boundTcpPort());
      sender.send(StreamBytes::metadata(3, 9) + StreamBytes::file("whole", "1234") + StreamBytes::header("half", 5) +
                  "12");
      sender.close();
      ASSERT_TRUE(received_->waitFor("[outcome failed connectionLost"));
    }
    ReceivedItemStorage::sweep(downloads());
    const bool isKept = count != SystemFaults::forever;
    EXPECT_EQ(folder_.tree("downloads"), isKept ? (Tree{{"whole", "1234"}}) : Tree());
    EXPECT_EQ(received_->lastOutcome().keptPath, isKept ? folder_.path("downloads/whole") : "");
    fs::remove(folder_.path("downloads/whole"));
  }
}

}  // namespace
}  // namespace vesko
