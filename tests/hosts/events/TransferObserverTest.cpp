#include "hosts/common/events/TransferObserver.h"

#include <gtest/gtest.h>

#include <memory>

#include "VeskoKit/TransferStream.h"
#include "hosts/common/events/EventJson.h"
#include "hosts/common/session/Session.h"
#include "tests/hosts/events/ListSink.h"
#include "tests/support/FakeClock.h"

namespace vesko {
namespace {

/// An outgoing transfer that is never started: the test speaks for it.
class TransferObserverTest : public testing::Test {
 protected:
  std::shared_ptr<VeskoTransfer> makeTransfer(VeskoItems items) {
    auto peer = std::make_shared<VeskoPeer>("", "192.0.2.7", std::uint16_t{1}, "", VeskoPeer::TimePoint());
    auto transfer = std::make_shared<VeskoTransfer>(std::move(items), std::move(peer), nullptr);
    observer_->noteStarted(observer_->nextId(), "items", *transfer);
    return transfer;
  }

  void progress(VeskoTransfer& transfer, std::uint64_t finishedBytes) {
    observer_->transferDidProgress(transfer, 1, 0, 1000, finishedBytes);
  }

  [[nodiscard]] std::vector<std::string> takeProgress() {
    auto events = sink_->take();
    std::erase_if(events, [](const std::string& event) { return event.find("progress") == std::string::npos; });
    return events;
  }

  std::shared_ptr<ListSink> sink_ = std::make_shared<ListSink>();
  std::shared_ptr<FakeClock> clock_ = std::make_shared<FakeClock>();
  const std::shared_ptr<TransferObserver> observer_ =
      std::make_shared<TransferObserver>(sink_, std::weak_ptr<VeskoServer>(), clock_, SessionSettings::unlimited);
};

TEST_F(TransferObserverTest, PacesProgressOfEachTransferAndKeepsTheLast) {
  const auto first = makeTransfer({std::make_shared<VeskoDir>("/x", "x")});
  const auto second = makeTransfer({std::make_shared<VeskoDir>("/y", "y")});
  std::size_t count = 0;
  for (std::uint64_t millisecond = 0; millisecond < 1000; ++millisecond) {
    progress(*first, millisecond);
    count += takeProgress().size();
    clock_->advance(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(count, 10U);
  EXPECT_EQ(takeProgress(), std::vector{jsonLine(ProgressEvent{1, 1, 0, 1000, 999, "x"})}) << "nothing more came";
  progress(*second, 1);
  EXPECT_EQ(takeProgress().size(), 1U);
  clock_->advance(TransferObserver::progressInterval);

  progress(*first, 1000);
  progress(*first, 1001);
  EXPECT_EQ(takeProgress().size(), 1U);
  observer_->transferDidEnd(*first, {});
  const auto events = sink_->take();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0], jsonLine(ProgressEvent{1, 1, 0, 1000, 1001, "x"}));
  EXPECT_EQ(events[1], jsonLine(FinishedEvent{1, 0, 0, 1.1, 0}));
}

TEST_F(TransferObserverTest, NamesTheElementUnderWayButNoText) {
  const auto text = makeTransfer(VeskoTransfer::itemsForText("hello"));
  progress(*text, 0);
  const auto folders = makeTransfer({std::make_shared<VeskoDir>("/x", "x"), std::make_shared<VeskoDir>("/y", "y")});
  observer_->transferDidProgress(*folders, 2, 1, 0, 0);
  clock_->advance(std::chrono::seconds(1));
  observer_->transferDidProgress(*folders, 2, 2, 0, 0);
  EXPECT_EQ(takeProgress(),
            (std::vector{jsonLine(ProgressEvent{1, 1, 0, 1000, 0, ""}), jsonLine(ProgressEvent{2, 2, 1, 0, 0, "y"}),
                         jsonLine(ProgressEvent{2, 2, 2, 0, 0, "y"})}));
}

TEST(Session, TakesTextsThatTheOtherSideTakes) {
  std::string text(VeskoText::maximumLength, 'x');
  EXPECT_EQ(Session::reasonAgainstText(text), VeskoFailureReason::none);
  text += 'x';
  EXPECT_EQ(Session::reasonAgainstText(text), VeskoFailureReason::limit);
  EXPECT_EQ(Session::reasonAgainstText("\xc0\x80"), VeskoFailureReason::invalidText);
  EXPECT_EQ(Session::reasonAgainstText(""), VeskoFailureReason::none);
}

}  // namespace
}  // namespace vesko
