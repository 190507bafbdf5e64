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

/// Runs the event loop of one session: takes its events, reports them, and remembers how the first transfer ended. Used
/// on the main thread.
///
///     SessionRun run(program);
///     run.handleInterrupts(ExitCode::success);
///     Session session(run.events(), settings);
///     if (!session.startReceiving()) return run.takeWaitingEvents();   // the failures
///     run.takeEvents([&] { return run.hasFirstEnded(); });
///     run.windDown(session);
class SessionRun {
 public:
  explicit SessionRun(Program& program) : program_(program) {}

  /// The sink for the session. Events that the reporter ignores are dropped there.
  [[nodiscard]] const std::shared_ptr<EventQueue>& events() const noexcept { return events_; }

  /// Calls `listener` with each event, before it is reported.
  void alsoTell(std::function<void(const Event&)> listener) { listener_ = std::move(listener); }

  /// From now on a signal ends `takeEvents`. A program that has not ended 1.8 seconds later exits with `overdue`.
  void handleInterrupts(ExitCode overdue);

  /// Processes events until `isDone`, called after each of them, returns true, or until a signal.
  void takeEvents(const std::function<bool()>& isDone);

  /// Processes the events that wait; never blocks.
  void takeWaitingEvents();

  /// Says goodbye, cancels the running transfers and processes events until all of them have ended.
  void windDown(Session& session);

  /// True when the first transfer has ended; `codeOfFirst` is then its exit code.
  [[nodiscard]] bool hasFirstEnded() const noexcept { return firstEnd_.has_value(); }
  [[nodiscard]] ExitCode codeOfFirst() const noexcept { return firstEnd_.value_or(ExitCode::unexpected); }

 private:
  void take(const Event& event);
  void noteEnd(TransferId transfer, ExitCode code);

  Program& program_;
  std::shared_ptr<EventQueue> events_ = std::make_shared<EventQueue>(
      [&reporter = program_.reporter](const Event& event) { return reporter.wants(event); });
  std::function<void(const Event&)> listener_;
  std::size_t running_ = 0;         // transfers
  bool isFirstIncomplete_ = false;  // something of it was skipped
  std::optional<ExitCode> firstEnd_;
};

}  // namespace vesko
