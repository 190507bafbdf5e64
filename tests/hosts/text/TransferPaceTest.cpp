#include "hosts/common/text/TransferPace.h"

#include <gtest/gtest.h>

#include "tests/support/FakeClock.h"

namespace vesko {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

ProgressEvent progress(std::uint64_t bytes, std::uint64_t elements = 0) {
  return {1, 2, elements, 2'000'000, bytes, {}};
}

TEST(TransferPace, TellsSinceWhenNothingMoves) {
  FakeClock clock;
  TransferPace pace;
  const auto after = [&](auto time, const ProgressEvent& event) {
    clock.advance(time);
    pace.note(event, clock.monotonicNow());
  };
  const auto standstill = [&] { return pace.standstill(clock.monotonicNow()); };
  after(seconds(0), progress(0));
  for (int second = 1; second <= 10; ++second) after(seconds(1), progress(100'000U * static_cast<unsigned>(second)));
  EXPECT_NEAR(pace.rate(), 100'000, 1);
  clock.advance(milliseconds(2900));
  EXPECT_EQ(standstill(), std::nullopt);
  EXPECT_EQ(pace.nextChange(clock.monotonicNow()), clock.monotonicNow() + milliseconds(100));
  clock.advance(milliseconds(100));
  EXPECT_EQ(standstill(), seconds(3));
  clock.advance(milliseconds(9500));
  EXPECT_EQ(standstill(), seconds(12));
  EXPECT_EQ(pace.nextChange(clock.monotonicNow()), clock.monotonicNow() + milliseconds(500));

  after(seconds(0), progress(1'000'000));
  EXPECT_EQ(standstill(), std::nullopt) << "something was acknowledged";
  EXPECT_EQ(pace.rate(), 0) << "what was before the standstill says nothing of the present";
  after(seconds(1), progress(1'500'000));
  EXPECT_EQ(pace.rate(), 500'000) << "nor does the standstill";
}

TEST(TransferPace, SaysWhatATransferWaitsFor) {
  TransferView out;
  out.direction = TransferDirection::out;
  out.ip = "192.0.2.7";
  out.progress = progress(1'000'000, 1);
  EXPECT_EQ(waitingText(out, "Sam", std::nullopt), "");
  EXPECT_EQ(waitingText(out, "Sam", seconds(12)), "nothing has moved for 12 s");
  EXPECT_EQ(waitingText(out, "Sam", seconds(83)), "nothing has moved for 1:23");
  out.progress = progress(2'000'000, 2);
  EXPECT_EQ(waitingText(out, "Sam", std::nullopt), "waiting for Sam to confirm");
  EXPECT_EQ(waitingText(out, "Sam", seconds(59)), "waiting for Sam to confirm, 59 s");
  out.direction = TransferDirection::in;
  EXPECT_EQ(waitingText(out, "Sam", std::nullopt), "");
  out.progress.reset();
  EXPECT_EQ(waitingText(out, "Sam", seconds(3)), "nothing has moved for 3 s");
}

}  // namespace
}  // namespace vesko
