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
#include "hosts/common/HumanText.h"

namespace vesko {

/// Tells a person at a shell: results on standard output, a bar, notices and complaints on standard error. Quiet: no
/// bar and no notices, and of a result only the text or the path.
class TerminalReporter : public Reporter {
 public:
  TerminalReporter(Console& console, bool isQuiet, std::shared_ptr<Clock> clock)
      : console_(console), isQuiet_(isQuiet), clock_(std::move(clock)) {}

  void report(const Event& event) override;

 private:
  using TimePoint = std::chrono::steady_clock::time_point;

  struct Transfer {
    TransferDirection direction = TransferDirection::in;
    std::string ip;
    std::string name;
    std::string path;
    bool isText = false;
    ProgressView view;
    std::optional<TimePoint> measured;  // when the view's bytes were
  };

  void on(const ReadyEvent& event);
  void on(const StartupFailureEvent& event);
  void on(const TransferStartedEvent& event);
  void on(const ProgressEvent& event);
  void on(const TextReceivedEvent& event);
  void on(const ItemsSavedEvent& event);
  void on(const FinishedEvent& event);
  void on(const FailedEvent& event);
  void on(const SkippedEvent& event);

  void note(const std::string& line);
  void measure(Transfer& transfer, std::uint64_t finishedBytes) const;
  void drawBar();
  void printSaved(const Transfer& transfer, const FinishedEvent& event);
  void printSent(const Transfer& transfer, const FinishedEvent& event);

  Console& console_;
  const bool isQuiet_;
  const std::shared_ptr<Clock> clock_;
  std::map<TransferId, Transfer> transfers_;
  std::optional<TimePoint> drawn_;
};

}  // namespace vesko
