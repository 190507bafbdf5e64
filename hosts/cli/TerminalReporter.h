#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "Platform/queues/Clock.h"
#include "hosts/cli/Console.h"
#include "hosts/cli/Reporter.h"
#include "hosts/common/session/SessionState.h"
#include "hosts/common/text/TransferPace.h"

namespace vesko {

/// Shows events to a person: results on standard output; progress bar, notices and errors on standard error. With
/// --quiet no bar and no notices, and of a result only the text or the path. Used on one thread.
class TerminalReporter : public Reporter {
 public:
  TerminalReporter(Console& console, bool isQuiet, std::shared_ptr<Clock> clock)
      : console_(console), isQuiet_(isQuiet), clock_(std::move(clock)) {}

  void report(const Event& event) override;
  [[nodiscard]] bool wants(const Event& event) const override;
  [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> refreshAt() const override;
  void refresh() override;

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  void on(const ReadyEvent& event);
  void on(const StartupFailureEvent& event);
  void on(const PeerAppearedEvent& event);
  void on(const PeerUpdatedEvent& /*event*/) {}
  void on(const PeerDisappearedEvent& event);
  void on(const TransferStartedEvent& /*event*/) {}
  void on(const ProgressEvent& event);
  void on(const TextReceivedEvent& event);
  void on(const ItemsSavedEvent& /*event*/) {}
  void on(const FinishedEvent& event);
  void on(const FailedEvent& event);
  void on(const SkippedEvent& event);
  void on(const RefusedEvent& event);
  void on(const QuestionEvent& /*event*/) {}
  void on(const AnswerEvent& /*event*/) {}

  void note(const std::string& line);
  void drawBar(TimePoint now);
  void noteStandstills(TimePoint now);
  void forget(TransferId id);
  [[nodiscard]] const TransferView& transfer(TransferId id) const { return state_.transfers().at(id); }
  void printSaved(const TransferView& saved, const FinishedEvent& event);
  void printSent(const TransferView& sent, const FinishedEvent& event);

  Console& console_;
  const bool isQuiet_;
  const std::shared_ptr<Clock> clock_;
  SessionState state_;
  std::map<TransferId, TransferPace> paces_;  // of the running transfers that have reported progress
  std::set<TransferId> unnoted_;              // outgoing transfers whose stall has not been reported; without a bar
  std::optional<TimePoint> drawn_;            // the last time the bar was drawn
  bool isBarBehind_ = false;                  // there was progress since
};

}  // namespace vesko
