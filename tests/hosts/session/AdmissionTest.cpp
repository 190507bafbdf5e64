#include "hosts/common/session/Admission.h"

#include <mutex>

#include "tests/socket/library/VeskoServerFixture.h"

namespace vesko {
namespace {

using StreamBytes::file;
using StreamBytes::metadata;

class QuestionList final : public EventSink, public EventList {
 public:
  void publish(Event event) override {
    std::visit(
        Overloaded{[this](const QuestionEvent& any) { add("question " + any.name); },
                   [this](const AnswerEvent& any) { add(any.isAccepted ? "yes" : "no"); }, [](const auto& /*any*/) {}},
        event);
  }
};

class AdmissionTest : public VeskoServerTest {
 protected:
  AdmissionTest() {
    server_->setIncomingGuard(admission_);
    Log::setSink(nullptr);
  }

  std::shared_ptr<QuestionList> events_ = std::make_shared<QuestionList>();
  TransferId lastId_ = 0;
  std::shared_ptr<Admission> admission_ = std::make_shared<Admission>(
      AdmissionRules{{}, true}, events_, [this](const VeskoIncomingTransfer& /*transfer*/) { return ++lastId_; },
      server_->incomingDispatchQueue());
};

TEST_F(AdmissionTest, NoAnswerMeansNo) {
  RawConnection sender = connect();
  sender.send(metadata(1, 1) + file("unanswered", "x"));
  ASSERT_TRUE(events_->waitFor("question unanswered"));
  clock_->advance(Admission::timeToAnswer - std::chrono::seconds(1));
  waitForTasks(server_->incomingDispatchQueue());
  EXPECT_EQ(recorder_->count("[outcome"), 0U) << "no time-out but that of the question";
  clock_->advance(std::chrono::seconds(1));
  ASSERT_TRUE(endsWith("failed refused"));
  admission_->answer(1, true);
  waitForTasks(server_->incomingDispatchQueue());
  EXPECT_EQ(events_->all(), (Strings{"question unanswered", "no"}));
  EXPECT_EQ(delivered(), Strings());
}

TEST_F(AdmissionTest, QuestionsAreBoundedAndWhoeverGivesUpIsGone) {
  std::vector<RawConnection> senders;
  senders.reserve(Admission::maximumQuestions);
  for (std::size_t i = 0; i < Admission::maximumQuestions; ++i) {
    senders.push_back(connect());
    senders.back().send(metadata(1, 2) + StreamBytes::header("asked", 2) + "x");
    ASSERT_TRUE(events_->waitFor("question", i + 1)) << "they are numbered in the order of their senders";
  }
  ASSERT_TRUE(receive(metadata(1, 1) + file("one too many", "x"), "failed refused"));
  EXPECT_EQ(events_->count("question one too many"), 0U);

  senders.front().reset();
  recorder_->take();
  admission_->answer(1, true);
  ASSERT_TRUE(endsWith("failed connectionLost"));
  recorder_->take();
  admission_->answer(2, true);
  senders[1].send("y");
  ASSERT_TRUE(endsWith("finished"));
  EXPECT_EQ(folder_.read("downloads/asked"), "xy");
  senders.clear();
  for (const auto& transfer : server_->pendingIncomingTransfers()) transfer->cancel();
  waitForTasks(server_->incomingDispatchQueue());
}

}  // namespace
}  // namespace vesko
