#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "hosts/cli/ExitCode.h"
#include "hosts/cli/Program.h"
#include "hosts/common/events/EventQueue.h"

namespace vesko {

class Session;

/// The run of one session: takes its events, has them reported, and keeps in mind how its first transfer went. Used on
/// the main thread.
class SessionRun {
 public:
  explicit SessionRun(Program& program) : program_(program) {}

  /// Where the session's events go; those that change nothing for the reporter are left out.
  [[nodiscard]] const std::shared_ptr<EventQueue>& events() const noexcept { return events_; }

  /// Has `listener` called with each event that is taken, before it is reported.
  void alsoTell(std::function<void(const Event&)> listener) { listener_ = std::move(listener); }

  /// From now on an interruption ends `takeEvents`; a run that does not come to its end then ends with `overdue`.
  void handleInterrupts(ExitCode overdue);

  /// Takes events until `isDone`, asked after each of them, or an interruption.
  void takeEvents(const std::function<bool()>& isDone);

  /// Takes the events that are waiting.
  void takeWaitingEvents();

  /// Breaks off what is still running and takes the events up to its end.
  void windDown(Session& session);

  /// True when the first transfer has ended; then also what that means for the program.
  [[nodiscard]] bool hasFirstEnded() const noexcept { return firstEnd_.has_value(); }
  [[nodiscard]] ExitCode codeOfFirst() const noexcept { return firstEnd_.value_or(ExitCode::unexpected); }

 private:
  void take(const Event& event);
  void noteEnd(TransferId transfer, ExitCode code);

  Program& program_;
  std::shared_ptr<EventQueue> events_ = std::make_shared<EventQueue>(
      [&reporter = program_.reporter](const Event& event) { return reporter.wants(event); });
  std::function<void(const Event&)> listener_;
  std::size_t running_ = 0;
  bool isFirstIncomplete_ = false;
  std::optional<ExitCode> firstEnd_;
};

}  // namespace vesko
