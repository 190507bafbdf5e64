#include "hosts/common/session/SessionState.h"

#include <gtest/gtest.h>

namespace vesko {
namespace {

TransferStartedEvent start(TransferId id) { return {id, TransferDirection::in, "192.0.2.7", ""}; }

TEST(SessionState, AddsUpWhatHappensToPeersAndTransfers) {
  SessionState state;
  const PeerView first{"a", "192.0.2.1", 1, "One", "", {}};
  const PeerView second{"b", "192.0.2.2", 2, "Two", "png", {}};
  PeerView renamed = first;
  renamed.systemSignature = "Uno";
  for (const Event& event : std::initializer_list<Event>{
           PeerAppearedEvent{first}, PeerAppearedEvent{second}, PeerUpdatedEvent{renamed},
           PeerDisappearedEvent{{"b", "", 0, "", "", {}}}, PeerDisappearedEvent{{"never", "", 0, "", "", {}}},
           TransferStartedEvent{1, TransferDirection::out, "192.0.2.1", "Photos"}, start(2),
           ProgressEvent{1, 2, 1, 3, 4, "x"}, ProgressEvent{1, 2, 2, 3, 5, "y"}, ItemsSavedEvent{2, "/d/x"},
           TextReceivedEvent{2, "t"}, FailedEvent{2, VeskoFailureReason::noSpace, "m", "", true, ""},
           FinishedEvent{2, 1, 2, 3, 4}}) {
    state.apply(event);
  }
  EXPECT_EQ(state.peers(), (std::map<std::string, PeerView>{{"a", renamed}}));
  ASSERT_EQ(state.transfers().size(), 2U);
  const TransferView& out = state.transfers().at(1);
  EXPECT_EQ(out.name, "Photos");
  EXPECT_EQ(out.progress.value().finishedBytes, 5U);
  EXPECT_FALSE(out.hasEnded());
  const TransferView& in = state.transfers().at(2);
  EXPECT_EQ(in.path, "/d/x");
  EXPECT_TRUE(in.isText);
  EXPECT_TRUE(std::holds_alternative<FailedEvent>(in.end)) << "the first end counts";
}

TEST(SessionState, RemembersTheLastToEndAndAllThatRun) {
  SessionState state;
  state.apply(FinishedEvent{7, 0, 0, 0, 0});
  state.apply(ProgressEvent{7, 0, 0, 0, 0, ""});
  EXPECT_TRUE(state.transfers().empty());

  const TransferId count = SessionState::endedTransfersKept + 2;
  for (TransferId id = 1; id <= count; ++id) state.apply(start(id));
  for (TransferId id = 3; id <= count; ++id) state.apply(FinishedEvent{id, 0, 0, 0, 0});
  EXPECT_EQ(state.transfers().size(), count);
  state.apply(FinishedEvent{1, 0, 0, 0, 0});
  EXPECT_TRUE(state.transfers().contains(1)) << "the oldest, but the last to end";
  EXPECT_TRUE(state.transfers().contains(2)) << "still running";
  EXPECT_FALSE(state.transfers().contains(3));
  EXPECT_EQ(state.transfers().size(), SessionState::endedTransfersKept + 1);
}

}  // namespace
}  // namespace vesko
