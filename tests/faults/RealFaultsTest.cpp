#include <sys/mount.h>
#include <unistd.h>

#include <functional>

#include "tests/faults/FaultsFixture.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Namespaces.h"
#include "tests/support/QueueTasks.h"
#include "tests/support/RawPeer.h"
#include "tests/support/StreamBytes.h"

namespace vesko {
namespace {

namespace fs = std::filesystem;
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

}  // namespace
}  // namespace vesko
