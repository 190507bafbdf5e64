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

/// Tells a person at a shell: results on standard output, a bar, notices and complaints on standard error. Quiet: no
/// bar and no notices, and of a result only the text or the path.
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
  std::map<TransferId, TransferPace> paces_;  // of those that have told how far they are
  std::set<TransferId> unnoted_;              // those of which a standstill is still to be told, where there is no bar
  std::optional<TimePoint> drawn_;
  bool isBarBehind_ = false;
};

}  // namespace vesko
