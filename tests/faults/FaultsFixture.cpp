#include "tests/faults/FaultsFixture.h"

#include <string_view>

#include "VeskoKit/DeliveryNames.h"
#include "VeskoKit/ReceivedItemStorage.h"
#include "tests/support/IsSoon.h"
#include "tests/support/ListingApp.h"
#include "tests/support/QueueTasks.h"

namespace vesko {
namespace {

using Kind = VeskoTransferOutcome::Kind;

/// More than a socket sends or receives in one piece, and enough for what is left then to be spliced.
constexpr std::size_t large = 400'000;

std::string patternOf(std::size_t length) {
  std::string text;
  text.reserve(length);
  for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + (i / 7 + i / 1000) % 26);
  return text;
}

bool isFinished(const VeskoTransferOutcome& outcome) { return outcome.kind == Kind::finished; }

std::string descriptionOf(const VeskoTransferOutcome& outcome) {
  return outcome.description() + " [" + std::string(nameOfFailureReason(outcome.reason)) + "]";
}

}  // namespace

std::string FaultsTest::Outcomes::description() const {
  return "sent: " + descriptionOf(sent) + "; received: " + (received ? descriptionOf(*received) : "nothing");
}

bool FaultsTest::Outcomes::areFinished() const { return isFinished(sent) && received && isFinished(*received); }

FaultsTest::FaultsTest() {
  Log::setSink(nullptr);
  folder_.write("sentinel", "untouched");
  folder_.makeFolder("downloads");
  folder_.write("sources/file", patternOf(large));
  folder_.write("sources/next", "next");
  folder_.makeFolder("sources/folder/sub/empty folder");
  folder_.write("sources/folder/sub/deeper/small", "small");
  folder_.write("sources/folder/sub/deeper/large", patternOf(large + 1));
  folder_.write("sources/folder/empty file", "");
  next_ = sendable("next");
}

FaultsTest::~FaultsTest() {
  stopServer();
  EXPECT_EQ(folder_.entries(), (std::vector<std::string>{"downloads", "sentinel", "sources"}));
  EXPECT_EQ(folder_.read("sentinel"), "untouched");
}

bool FaultsTest::waitForDescriptors(std::ptrdiff_t count) const {
  return isSoon([&] {
    waitForTasks(queue_);
    return openDescriptors() <= count;
  });
}

void FaultsTest::startServer(SystemFaults& faults) {
  server_ = std::make_shared<VeskoServer>(0, 0, clock_);
  server_->downloadsFolder = downloads();
  server_->application = std::make_shared<ListingApp>();
  server_->setIncomingDelegate(received_);
  server_->setIncomingOutcomeDelegate(received_);
  faults.asProduct([&] { server_->startServer(); });
  waitForTasks(server_->incomingDispatchQueue());
}

void FaultsTest::stopServer() {
  if (!server_) return;
  const auto queue = server_->incomingDispatchQueue();
  server_.reset();
  waitForTasks(queue);
}

Sendable FaultsTest::sendable(const std::string& name) const {
  Sendable result{name, {}, {}, {}};
  if (name == "text") {
    result.text = patternOf(large);
    return result;
  }
  const auto sources = folder_.tree("sources");
  for (const auto* top : {"file", "next", "folder"}) {
    if (name != top && !(name == "several" && std::string_view(top) != "next")) continue;
    result.paths.push_back(folder_.path("sources/" + std::string(top)));
    for (const auto& [path, bytes] : sources) {
      if (path == top || path.starts_with(std::string(top) + '/')) result.expected[path] = bytes;
    }
  }
  return result;
}

FaultsTest::Outcomes FaultsTest::send(const Sendable& sendable, SystemFaults& faults) {
  sent_->take();
  received_->take();
  auto items = sendable.paths.empty() ? VeskoTransfer::itemsForText(sendable.text)
                                      : VeskoTransfer::itemsForPaths(sendable.paths);
  const auto peer =
      std::make_shared<VeskoPeer>("key", "127.0.0.1", server_->boundTcpPort(), "", VeskoPeer::TimePoint());
  const auto transfer = std::make_shared<VeskoTransfer>(std::move(items), peer, queue_);
  transfer->setOutcomeDelegate(sent_);
  faults.asProduct([&] { transfer->start(); });
  EXPECT_TRUE(sent_->waitFor("[outcome")) << "the sender hangs";
  EXPECT_TRUE(faults.waitUntilAllAreAccepted()) << "the listener does not accept";
  // What has been accepted has made itself known by then, if it ever does.
  waitForTasks(server_->incomingDispatchQueue());
  const auto started = received_->count("[start]");
  EXPECT_TRUE(received_->waitFor("[outcome", started)) << "the receiver hangs";
  waitForTasks(server_->incomingDispatchQueue());
  waitForTasks(queue_);
  server_->pruneFinishedTransfers();
  EXPECT_EQ(sent_->count("[outcome"), 1U);
  EXPECT_EQ(received_->count("[outcome"), started);
  EXPECT_LE(started, 1U);
  return {sent_->lastOutcome(), started == 0 ? std::nullopt : std::optional(received_->lastOutcome())};
}

void FaultsTest::expectConsistent(const Sendable& sendable, const Outcomes& outcomes) {
  for (const auto& outcome : {std::optional(outcomes.sent), outcomes.received}) {
    if (!outcome || isFinished(*outcome)) continue;
    EXPECT_EQ(outcome->kind, Kind::failed);
    EXPECT_NE(outcome->reason, VeskoFailureReason::none);
    EXPECT_NE(outcome->reason, VeskoFailureReason::timedOut) << "somebody was left waiting";
    EXPECT_EQ(outcome->droppedCount, 0U);
  }
  const auto hasArrived = outcomes.received && isFinished(*outcomes.received);
  EXPECT_TRUE(hasArrived || !isFinished(outcomes.sent)) << "the sender believes that it has arrived";
  EXPECT_EQ(received_->count("[finished]"), hasArrived ? 1U : 0U);
  if (sendable.paths.empty()) {
    const auto texts = received_->startingWith("[text");
    EXPECT_TRUE(texts.size() == 1 || !hasArrived);
    for (const auto& text : texts) EXPECT_EQ(text, "[text " + sendable.text + "]");
    return;
  }
  auto delivered = folder_.entries("downloads");
  std::erase_if(delivered, DeliveryNames::isStorageName);
  ASSERT_EQ(delivered.size(), hasArrived ? 1U : 0U) << testing::PrintToString(delivered);
  if (!hasArrived) return;
  const bool isSeveral = delivered.front().starts_with("Received by Vesko at ");
  auto tree = folder_.tree("downloads/" + (isSeveral ? delivered.front() : ""));
  std::erase_if(tree, [](const auto& entry) { return entry.first.starts_with('.'); });
  EXPECT_TRUE(tree == sendable.expected) << "not whole: " << delivered.front();
  std::filesystem::remove_all(folder_.path("downloads/" + delivered.front()));
}

void FaultsTest::expectNextTransferWorks() {
  SystemFaults none({});
  const auto outcomes = send(next_, none);
  EXPECT_TRUE(outcomes.areFinished()) << "afterwards: " << outcomes.description();
  expectConsistent(next_, outcomes);
}

}  // namespace vesko
