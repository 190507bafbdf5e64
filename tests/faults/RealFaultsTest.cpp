#include <netinet/in.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>

#include "tests/faults/FaultsFixture.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FewDescriptors.h"
#include "tests/support/Namespaces.h"
#include "tests/support/QueueTasks.h"
#include "tests/support/RawPeer.h"
#include "tests/support/StreamBytes.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Names = std::vector<std::string>;

constexpr std::size_t kibibyte = 1024;

/// A receiving service and its senders, for the length of one test.
class BothEnds : public FaultsTest {
 public:
  BothEnds() { startServer(none_); }

  void TestBody() override {}

  /// Sends a file of this size; how the receiving end told of it.
  VeskoFailureReason receivedOf(std::size_t size) {
    folder_.write("sources/sized", std::string(size, 'x'));
    Sendable sized{"sized", {folder_.path("sources/sized")}, {}, {{"sized", std::string(size, 'x')}}};
    const auto outcomes = send(sized, none_);
    expectConsistent(sized, outcomes);
    EXPECT_EQ(outcomes.areFinished(), outcomes.sent.kind == VeskoTransferOutcome::Kind::finished);
    return outcomes.received ? outcomes.received->reason : VeskoFailureReason::connectionRefused;
  }

  /// Receives a stream in two parts; how it ended, once.
  VeskoFailureReason receivedAround(const std::string& first, const std::function<void()>& change,
                                    const std::string& second) {
    received_->take();
    RawConnection sender = RawConnection::to(server_->boundTcpPort());
    sender.send(first);
    EXPECT_TRUE(received_->waitFor("[progress 3 1"));
    waitForTasks(server_->incomingDispatchQueue());
    change();
    sender.send(second);
    EXPECT_TRUE(received_->waitFor("[outcome"));
    (void)sender.receiveAll();
    EXPECT_EQ(sender.error(), std::errc::connection_reset);
    waitForTasks(server_->incomingDispatchQueue());
    EXPECT_EQ(received_->count("[outcome"), 1U);
    return received_->lastOutcome().reason;
  }

  using FaultsTest::downloads;
  using FaultsTest::expectNextTransferWorks;
  using FaultsTest::folder_;
  using FaultsTest::received_;
  using FaultsTest::server_;

 private:
  SystemFaults none_{{}};
};

const std::string beginning = StreamBytes::metadata(3, 900 * kibibyte) + StreamBytes::file("whole", "1234") +
                              StreamBytes::header("half", 700 * kibibyte) + std::string(100 * kibibyte, 'x');
const std::string rest = std::string(600 * kibibyte, 'x') + StreamBytes::file("last", "1234");

/// True when processes here may mount what others do not see.
bool mayMount() {
  return passesInChild([] { ::_exit(::geteuid() == 0 && enterOwnMounts() ? 0 : 1); });
}

class RealFaultsDeathTest : public testing::Test {};

TEST_F(RealFaultsDeathTest, AFullDisk) {
  if (!mayMount()) GTEST_SKIP() << "only root may mount";
  EXPECT_TRUE(passesInChild([] {
    ASSERT_TRUE(enterOwnMounts());
    BothEnds ends;
    ASSERT_EQ(::mount("none", ends.downloads().c_str(), "tmpfs", 0, "size=1m,nr_inodes=16"), 0);
    EXPECT_EQ(ends.receivedOf(2048 * kibibyte), VeskoFailureReason::noSpace) << "known before the first byte";
    const auto fill = [&] { ends.folder_.write("downloads/filler", std::string(1024 * kibibyte, 'x')); };
    EXPECT_EQ(ends.receivedAround(beginning, fill, rest), VeskoFailureReason::noSpace) << "filled up by another";
    EXPECT_EQ(ends.folder_.entries("downloads"), Names{"filler"});
    fs::remove(ends.folder_.path("downloads/filler"));
    std::string many = StreamBytes::metadata(100, 0);
    for (int i = 0; i < 100; ++i) many += StreamBytes::folder(std::to_string(i));
    ends.received_->take();
    RawConnection sender = RawConnection::to(ends.server_->boundTcpPort());
    sender.send(many);
    EXPECT_TRUE(ends.received_->waitFor("[outcome failed noSpace")) << "no entries left";
    EXPECT_EQ(ends.folder_.entries("downloads"), Names());
    ends.expectNextTransferWorks();
    EXPECT_EQ(::umount2(ends.downloads().c_str(), MNT_DETACH), 0);
  }));
}

TEST_F(RealFaultsDeathTest, AReadOnlyDisk) {
  if (!mayMount()) GTEST_SKIP() << "only root may mount";
  EXPECT_TRUE(passesInChild([] {
    ASSERT_TRUE(enterOwnMounts());
    BothEnds ends;
    const auto downloads = ends.downloads();
    ASSERT_EQ(::mount("none", downloads.c_str(), "tmpfs", MS_RDONLY, ""), 0);
    EXPECT_EQ(ends.receivedOf(kibibyte), VeskoFailureReason::storage);
    ASSERT_EQ(::mount("none", downloads.c_str(), "tmpfs", MS_REMOUNT, ""), 0);
    ends.expectNextTransferWorks();
    EXPECT_EQ(::umount2(downloads.c_str(), MNT_DETACH), 0);
  }));
}

TEST_F(RealFaultsDeathTest, MissingRights) {
  EXPECT_TRUE(passesAsOrdinaryUser([] {
    BothEnds ends;
    fs::permissions(ends.downloads(), fs::perms(0555));
    EXPECT_EQ(ends.receivedOf(kibibyte), VeskoFailureReason::storage);
    EXPECT_EQ(ends.folder_.entries("downloads"), Names());
    fs::permissions(ends.downloads(), fs::perms(0755));
    ends.expectNextTransferWorks();
  }));
}

TEST_F(RealFaultsDeathTest, TheDownloadsFolderIsTakenAway) {
  EXPECT_TRUE(passesInChild([] {
    BothEnds ends;
    for (const bool isReplaced : {false, true}) {
      const auto takeAway = [&] {
        fs::rename(ends.downloads(), ends.folder_.path("sources/taken"));
        fs::remove_all(ends.folder_.path("sources/taken"));
        if (isReplaced) ends.folder_.makeFolder("downloads");
      };
      EXPECT_EQ(ends.receivedAround(beginning, takeAway, rest), VeskoFailureReason::storage);
      ends.expectNextTransferWorks();
      EXPECT_EQ(ends.folder_.entries("downloads"), Names());
    }
  }));
}

double processorSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void connectTo(int descriptor, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

TEST_F(RealFaultsDeathTest, ManyConnectionsAndFewDescriptors) {
  EXPECT_TRUE(passesInChild([] {
    constexpr std::size_t count = 60;
    BothEnds ends;
    std::vector<FileDescriptor> descriptors;
    descriptors.reserve(count);
    for (std::size_t i = 0; i < count; ++i) descriptors.emplace_back(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    {
      const FewDescriptors few(20);
      for (auto& descriptor : descriptors) connectTo(descriptor.get(), ends.server_->boundTcpPort());
      EXPECT_TRUE(ends.received_->waitFor("[start]", 20));
      const auto before = processorSeconds();
      const auto start = std::chrono::steady_clock::now();
      pollfd last{descriptors.back().get(), POLLIN, 0};
      EXPECT_EQ(::poll(&last, 1, 1500), 0);
      const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
      EXPECT_LT(processorSeconds() - before, 0.05 * elapsed.count());
      EXPECT_EQ(ends.received_->count("[start]"), 20U);
    }
    EXPECT_TRUE(ends.received_->waitFor("[start]", count));
    descriptors.clear();
    EXPECT_TRUE(ends.received_->waitFor("[outcome", count));
    ends.expectNextTransferWorks();
  }));
}

}  // namespace
}  // namespace vesko
