#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Clock.h"
#include "hosts/cli/Console.h"
#include "hosts/cli/Reporter.h"
#include "hosts/common/SessionState.h"

namespace vesko {

/// Tells a person at a shell: results on standard output, a bar, notices and complaints on standard error. Quiet: no
/// bar and no notices, and of a result only the text or the path.
class TerminalReporter : public Reporter {
 public:
  TerminalReporter(Console& console, bool isQuiet, std::shared_ptr<Clock> clock)
      : console_(console), isQuiet_(isQuiet), clock_(std::move(clock)) {}

  void report(const Event& event) override;
  [[nodiscard]] bool wants(const Event& event) const override;

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// How fast a transfer is.
  struct Speed {
    TimePoint measured;
    std::uint64_t bytes = 0;
    double rate = 0;  // bytes per second
  };

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
  void measure(const ProgressEvent& event);
  void drawBar();
  [[nodiscard]] const TransferView& transfer(TransferId id) const { return state_.transfers().at(id); }
  void printSaved(const TransferView& saved, const FinishedEvent& event);
  void printSent(const TransferView& sent, const FinishedEvent& event);

  Console& console_;
  const bool isQuiet_;
  const std::shared_ptr<Clock> clock_;
  SessionState state_;
  std::map<TransferId, Speed> speeds_;  // of those that a bar can be drawn for
  std::optional<TimePoint> drawn_;
};

}  // namespace vesko
