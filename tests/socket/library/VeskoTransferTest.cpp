#include "VeskoKit/VeskoTransfer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "Platform/queues/DispatchQueue.h"
#include "Platform/sockets/GCDAsyncSocket.h"
#include "tests/support/FakeClock.h"
#include "tests/support/QueueTasks.h"
#include "tests/support/RawPeer.h"
#include "tests/support/Recorder.h"
#include "tests/support/ScriptedSocket.h"
#include "tests/support/StreamBytes.h"
#include "tests/support/TemporaryFolder.h"

namespace vesko {
namespace {

using Strings = std::vector<std::string>;

constexpr std::uint64_t mebibyte = 1024 * 1024;

/// A transfer over a `ScriptedSocket`.
class ScriptedTransfer final : public VeskoTransfer {
 public:
  using VeskoTransfer::VeskoTransfer;
  std::size_t completedWrites = 0;

 protected:
  std::shared_ptr<GCDAsyncSocket> makeSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate) override {
    return std::make_shared<ScriptedSocket>(std::move(delegate), dispatchQueue(), completedWrites);
  }
};

class VeskoTransferTest : public testing::Test {
 protected:
  VeskoTransferTest() { Log::setSink(recorder_); }
  ~VeskoTransferTest() override { Log::setSink(nullptr); }

  template <class Transfer = VeskoTransfer>
  std::shared_ptr<Transfer> make(VeskoItems items, std::uint16_t port, const std::string& ip = "127.0.0.1") {
    auto peer = std::make_shared<VeskoPeer>("key", ip, port, "signature", VeskoPeer::TimePoint());
    auto transfer = std::make_shared<Transfer>(std::move(items), std::move(peer), queue_);
    transfer->setDelegate(recorder_);
    transfer->setOutcomeDelegate(recorder_);
    return transfer;
  }

  /// The items for a folder A with a file b.txt of five bytes.
  [[nodiscard]] VeskoItems folderWithFile() const {
    folder_.write("A/b.txt", "hello");
    return VeskoTransfer::itemsForPaths({folder_.path("A")});
  }

  /// A file of `size` bytes that takes no room on the disk.
  [[nodiscard]] VeskoItems sparseFile(const std::string& name, std::uint64_t size) const {
    std::filesystem::resize_file(folder_.write(name, ""), size);
    return VeskoTransfer::itemsForPaths({folder_.path(name)});
  }

  /// Starts the transfer and accepts its connection.
  [[nodiscard]] RawConnection start(VeskoTransfer& transfer) const {
    transfer.start();
    return listener_.accept();
  }

  /// True when the transfer's only outcome is `text`, and nothing comes after it.
  [[nodiscard]] bool endsWith(const std::string& text) const {
    if (!recorder_->waitFor("[outcome")) return false;
    waitForTasks(queue_);
    EXPECT_EQ(recorder_->all().back(), "[outcome " + text + "]");
    return recorder_->count("[outcome") == 1;
  }

  TemporaryFolder folder_;
  RawListener listener_;
  std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
  std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::serial("transfer", clock_);
  std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
};

TEST_F(VeskoTransferTest, SendsAFolderWithAFile) {
  const auto transfer = make(folderWithFile(), listener_.port());
  EXPECT_EQ(transfer->totalSize, 5U);
  EXPECT_EQ(transfer->socket(), nullptr);
  RawConnection peer = start(*transfer);
  const std::string stream = peer.receiveAll();
  EXPECT_EQ(stream, StreamBytes::folderWithFile());
  EXPECT_EQ(stream.size(), 47U);
  EXPECT_FALSE(peer.error());
  peer.close();
  ASSERT_TRUE(endsWith("finished"));
  const Strings expected = {
      "didConnectToHost 127.0.0.1 " + std::to_string(listener_.port()),
      "[connected]",
      "[progress 2 0 5 0]",
      "didWriteDataWithTag 1",
      "sending meta A",
      "didWriteDataWithTag 2",
      "sending chunk 0 0 A",
      "[progress 2 0 5 0]",
      "didWriteDataWithTag 3",
      "[progress 2 1 5 0]",
      "sending meta A/b.txt",
      "didWriteDataWithTag 2",
      "sending chunk 5 5 A/b.txt",
      "[progress 2 1 5 0]",
      "didWriteDataWithTag 3",
      "[progress 2 2 5 5]",
      "[finished]",
      "didDisconnect",
      "[outcome finished]",
  };
  EXPECT_EQ(recorder_->all(), expected);
  EXPECT_EQ(transfer->socket(), nullptr);
  EXPECT_TRUE(transfer->hasEnded());
}

TEST_F(VeskoTransferTest, SendsBodiesOfAllSizes) {
  const std::string text(StreamBytes::textName);
  const struct {
    VeskoItems items;
    std::string header;
    std::uint64_t size;
    Strings chunks;
  } cases[] = {
      {sparseFile("25", 25 * mebibyte),
       StreamBytes::header("25", 26'214'400),
       26'214'400,
       {"sending chunk 10485760 10485760 25", "sending chunk 20971520 10485760 25",
        "sending chunk 26214400 5242880 25"}},
      {sparseFile("0", 0), StreamBytes::header("0", 0), 0, {"sending chunk 0 0 0"}},
      {VeskoTransfer::itemsForText("caf\xc3\xa9"), StreamBytes::header(text, 5), 5, {"sending chunk 5 5 " + text}},
      {VeskoTransfer::itemsForText(""), StreamBytes::header(text, 0), 0, {"sending chunk 0 0 " + text}},
      {{}, "", 0, {}},
  };
  for (const auto& [items, header, size, chunks] : cases) {
    SCOPED_TRACE(header);
    recorder_->take();
    const auto transfer = make(items, listener_.port());
    RawConnection peer = start(*transfer);
    const std::string beginning = StreamBytes::metadata(items.size(), size) + header;
    EXPECT_EQ(peer.receive(beginning.size()), beginning);
    EXPECT_EQ(peer.receiveAll().size(), size);
    peer.close();
    ASSERT_TRUE(endsWith("finished"));
    EXPECT_EQ(recorder_->startingWith("sending chunk"), chunks);
    std::uint64_t before = 0;
    const auto reports = recorder_->startingWith("[progress");
    for (const std::string& report : reports) {
      const std::uint64_t finished = std::stoull(report.substr(report.rfind(' ')));
      EXPECT_GE(finished, std::exchange(before, finished));
    }
    const auto count = std::to_string(items.size()) + " ";
    const auto bytes = std::to_string(size);
    EXPECT_EQ(reports.back(), "[progress " + count + count + bytes + " " + bytes + "]");
  }
}

TEST_F(VeskoTransferTest, ConnectingFails) {
  const RawListener refusing(false);
  const auto transfer = make(folderWithFile(), refusing.port());
  transfer->start();
  ASSERT_TRUE(endsWith("failed connectionRefused"));
  EXPECT_EQ(recorder_->take(), (Strings{"didDisconnect", "[outcome failed connectionRefused]"}));
  EXPECT_TRUE(recorder_->lastOutcome().operation.starts_with("connecting"));
  EXPECT_EQ(recorder_->lastOutcome().error, std::errc::connection_refused);

  for (const std::string ip : {"", "localhost", "127.0.0.256", "127.0.0.1 ", "::1"}) {
    make(folderWithFile(), 4644, ip)->start();
    ASSERT_TRUE(endsWith("failed unreachable"));
    EXPECT_EQ(recorder_->take().size(), 1U);
  }
}

TEST_F(VeskoTransferTest, SmallWritesTimeOut) {
  for (const std::size_t completed : {0U, 1U, 2U}) {
    SCOPED_TRACE(completed);
    recorder_->take();
    const auto transfer = make<ScriptedTransfer>(folderWithFile(), 4644);
    transfer->completedWrites = completed;
    transfer->start();
    ASSERT_TRUE(clock_->waitForAlarm());
    waitForTasks(queue_);
    EXPECT_EQ(recorder_->count("[progress 2 0 5 1"), 0U) << "partial notices count for bodies only";
    recorder_->take();
    clock_->advance(std::chrono::seconds(10));
    ASSERT_TRUE(endsWith("failed timedOut"));
    const std::string tag = completed == 0 ? "1" : "2";
    EXPECT_EQ(recorder_->all(),
              (Strings{"shouldTimeoutWriteWithTag " + tag + " 10.0 0", "didDisconnect", "[outcome failed timedOut]"}));
    EXPECT_EQ(transfer->transferedCount, completed == 2 ? 1 : 0);
  }
}

TEST_F(VeskoTransferTest, WritesOfBodiesAndThoseWithABoundForStallsDoNot) {
  const struct {
    std::size_t completed;
    std::optional<double> stallTimeout;
    std::string awaited;
  } cases[] = {{3, std::nullopt, "sending chunk 5"}, {1, 90.0, "sending meta A"}};
  for (const auto& [completed, stallTimeout, awaited] : cases) {
    recorder_->take();
    const auto transfer = make<ScriptedTransfer>(folderWithFile(), 4644);
    transfer->completedWrites = completed;
    transfer->stallTimeout = stallTimeout;
    transfer->start();
    ASSERT_TRUE(recorder_->waitFor(awaited));
    waitForTasks(queue_);
    clock_->advance(std::chrono::hours(24));
    waitForTasks(queue_);
    EXPECT_EQ(recorder_->count("[outcome"), 0U);
    transfer->cancel();
    EXPECT_TRUE(endsWith("cancelled"));
  }
}

TEST_F(VeskoTransferTest, ABoundForStallsCountsFromTheLastByteTaken) {
  const auto transfer = make(sparseFile("file", 50 * mebibyte), listener_.port());
  transfer->stallTimeout = 90.0;
  RawConnection peer = start(*transfer);
  ASSERT_TRUE(recorder_->waitFor("sending chunk"));
  (void)peer.receive(10 * mebibyte);
  for (int step = 0; step < 2; ++step) {
    waitForTasks(queue_);
    ASSERT_TRUE(clock_->waitForAlarm());
    EXPECT_EQ(recorder_->count("[outcome"), 0U);
    clock_->advance(std::chrono::seconds(step == 0 ? 1 : 90));
  }
  EXPECT_TRUE(endsWith("failed timedOut"));
  EXPECT_EQ(recorder_->lastOutcome().element, "file");
}

TEST_F(VeskoTransferTest, AFileThatChangesArrivesAsOneFileOrNotAtAll) {
  constexpr std::uint64_t size = 12 * mebibyte;  // the last chunk is not read before the change
  const std::string path = folder_.path("file");
  const auto replaceBy = [&](std::uint64_t length) {
    folder_.write("other", std::string(length, 'n'));
    std::filesystem::rename(folder_.path("other"), path);
  };
  const auto becomeFolder = [&] {
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
  };
  const auto becomePipe = [&] {
    std::filesystem::remove(path);
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  };
  const auto grow = [&] { std::ofstream(path, std::ios::app) << "more"; };
  const auto vanish = [&] { std::filesystem::remove(path); };
  const struct {
    const char* name;
    std::function<void()> change;
    char before;  ///< what all bytes are that arrive when it changes between listing and opening; 0: it fails
    char within;  ///< when it changes while its body is being sent
  } cases[] = {
      {"grows", grow, 'o', 'o'},
      {"vanishes", vanish, 0, 'o'},
      {"becomes a folder", becomeFolder, 0, 'o'},
      {"becomes a pipe", becomePipe, 0, 'o'},
      {"is replaced by another", [&] { replaceBy(size); }, 'n', 'o'},
      {"is replaced by a longer one", [&] { replaceBy(size + 1); }, 'n', 'o'},
      {"is replaced by a shorter one", [&] { replaceBy(size - 1); }, 0, 'o'},
      {"shrinks", [&] { std::filesystem::resize_file(path, size - 1); }, 0, 0},
  };
  for (const auto& [name, change, before, within] : cases) {
    for (const bool isWithin : {false, true}) {
      SCOPED_TRACE(testing::Message() << name << (isWithin ? " within its body" : " before it is opened"));
      std::filesystem::remove_all(path);
      folder_.write("file", std::string(size, 'o'));
      recorder_->take();
      const auto transfer = make(VeskoTransfer::itemsForPaths({path}), listener_.port());
      if (!isWithin) change();
      RawConnection peer = start(*transfer);
      const std::string beginning = StreamBytes::metadata(1, size) + StreamBytes::header("file", size);
      std::string stream = isWithin ? peer.receive(beginning.size() + 1000) : std::string();
      if (isWithin) change();
      stream += peer.receiveAll();
      const char expected = isWithin ? within : before;
      EXPECT_EQ(peer.error(), expected == 0 ? std::errc::connection_reset : std::errc());
      peer.close();
      ASSERT_TRUE(endsWith(expected == 0 ? "failed sourceChanged" : "finished"));
      EXPECT_TRUE(expected == 0 || stream == beginning + std::string(size, expected));
    }
  }
  recorder_->take();
  const auto bodiless = make({std::make_shared<VeskoItem>("bodiless", 5, 5)}, listener_.port());
  RawConnection peer = start(*bodiless);
  (void)peer.receiveAll();
  EXPECT_EQ(peer.error(), std::errc::connection_reset);
  EXPECT_TRUE(endsWith("failed sourceChanged"));
  EXPECT_EQ(recorder_->lastOutcome().element, "bodiless");
  EXPECT_EQ(recorder_->count("[finished]"), 0U);
}

TEST_F(VeskoTransferTest, TheReceiverDecidesWhatTheEndWasWorth) {
  const struct {
    std::function<void(RawConnection&)> end;
    std::string outcome;
  } cases[] = {
      {[](RawConnection& peer) { peer.reset(); }, "failed connectionLost"},
      {[](RawConnection& peer) { peer.close(); }, "finished"},
      {[this](RawConnection& /*silent*/) { clock_->advance(std::chrono::seconds(10)); }, "failed unconfirmed"},
  };
  for (const auto& [end, outcome] : cases) {
    SCOPED_TRACE(outcome);
    recorder_->take();
    const auto transfer = make(folderWithFile(), listener_.port());
    RawConnection peer = start(*transfer);
    EXPECT_EQ(peer.receiveAll(), StreamBytes::folderWithFile());
    ASSERT_TRUE(recorder_->waitFor("[finished]"));
    for (int step = 0; step < 8; ++step) {
      waitForTasks(queue_);
      clock_->advance(std::chrono::seconds(10));
      waitForTasks(queue_);
    }
    EXPECT_EQ(recorder_->count("[outcome"), 0U) << "only the receiver's answer ends the transfer";
    end(peer);
    waitForTasks(queue_);
    if (outcome == "failed unconfirmed") clock_->advance(std::chrono::seconds(10));
    EXPECT_TRUE(endsWith(outcome));
  }
  recorder_->take();
  const auto transfer = make(sparseFile("file", 50 * mebibyte), listener_.port());
  RawConnection peer = start(*transfer);
  (void)peer.receive(1000);
  peer.close();
  EXPECT_TRUE(endsWith("failed connectionLost"));
  EXPECT_EQ(recorder_->lastOutcome().element, "file");
  EXPECT_EQ(recorder_->count("[finished]"), 0U);
}

TEST_F(VeskoTransferTest, IsCancelled) {
  const auto transfer = make(sparseFile("file", 50 * mebibyte), listener_.port());
  transfer->cancel();  // without effect: not started
  waitForTasks(queue_);
  RawConnection peer = start(*transfer);
  ASSERT_TRUE(recorder_->waitFor("sending chunk"));
  transfer->cancel();
  transfer->cancel();
  EXPECT_TRUE(endsWith("cancelled"));
  EXPECT_LT(peer.receiveAll().size(), 50 * mebibyte);
  EXPECT_EQ(peer.error(), std::errc::connection_reset);
  transfer->cancel();
  EXPECT_TRUE(endsWith("cancelled"));

  recorder_->take();
  const auto draining = make(folderWithFile(), listener_.port());
  const RawConnection silent = start(*draining);
  ASSERT_TRUE(recorder_->waitFor("[finished]"));
  draining->cancel();
  EXPECT_TRUE(endsWith("cancelled"));

  recorder_->take();
  const auto unconnected = make(sparseFile("file", 50 * mebibyte), listener_.port());
  RawConnection left = start(*unconnected);
  ASSERT_TRUE(recorder_->waitFor("sending chunk"));
  queue_->async([&] { unconnected->setSocket(nullptr); });
  EXPECT_LT(left.receiveAll().size(), 50 * mebibyte);
  EXPECT_EQ(left.error(), std::errc::connection_reset);
  unconnected->cancel();
  EXPECT_TRUE(endsWith("cancelled"));
}

/// Is cancelled by another thread in the middle of its start.
class HastilyCancelledTransfer final : public VeskoTransfer {
 public:
  using VeskoTransfer::VeskoTransfer;

 protected:
  std::shared_ptr<GCDAsyncSocket> makeSocket(std::weak_ptr<GCDAsyncSocketDelegate> delegate) override {
    std::jthread([this] { cancel(); }).join();
    if (!dispatchQueue()->isCurrent()) waitForTasks(dispatchQueue());
    return VeskoTransfer::makeSocket(std::move(delegate));
  }
};

TEST_F(VeskoTransferTest, EndsOnceWhenCancelledInTheMiddleOfItsStart) {
  const auto transfer = make<HastilyCancelledTransfer>(folderWithFile(), listener_.port());
  transfer->start();
  EXPECT_TRUE(endsWith("cancelled"));
}

}  // namespace
}  // namespace vesko
